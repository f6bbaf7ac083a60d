// Preloaded into a program: counts its heap allocations, those that ZeroMQ's library makes and all others, and writes
// both numbers to the file that TOLVO_ALLOCATIONS names when the program ends.

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <link.h>
#include <new>

extern "C"
{
    void* __libc_malloc(std::size_t size);
    void* __libc_calloc(std::size_t count, std::size_t size);
    void* __libc_realloc(void* memory, std::size_t size);
}

namespace
{

std::atomic<std::uintptr_t> sZmqBegin{0};
std::atomic<std::uintptr_t> sZmqEnd{0};
std::atomic<unsigned long> sByZmq{0};
std::atomic<unsigned long> sByOthers{0};

void Count(const void* caller)
{
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    const bool isZmq = address >= sZmqBegin && address < sZmqEnd;
    ++(isZmq ? sByZmq : sByOthers);
}

int FindZmq(dl_phdr_info* object, std::size_t /*size*/, void* /*unused*/)
{
    if (std::strstr(object->dlpi_name, "/libzmq.so") == nullptr) return 0;
    for (int index = 0; index < object->dlpi_phnum; ++index)
    {
        const ElfW(Phdr)& segment = object->dlpi_phdr[index];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
        sZmqBegin = object->dlpi_addr + segment.p_vaddr;
        sZmqEnd = sZmqBegin + segment.p_memsz;
    }
    return 1;
}

__attribute__((constructor)) void Begin() { dl_iterate_phdr(FindZmq, nullptr); }

__attribute__((destructor)) void End()
{
    const char* const path = std::getenv("TOLVO_ALLOCATIONS");
    std::FILE* const file = path == nullptr || sZmqEnd == 0 ? nullptr : std::fopen(path, "w");
    if (file == nullptr) std::abort();
    std::fprintf(file, "%lu %lu\n", sByZmq.load(), sByOthers.load());
    std::fclose(file);
}

} // namespace

extern "C"
{
    void* malloc(std::size_t size)
    {
        Count(__builtin_return_address(0));
        return __libc_malloc(size);
    }

    void* calloc(std::size_t count, std::size_t size)
    {
        Count(__builtin_return_address(0));
        return __libc_calloc(count, size);
    }

    void* realloc(void* memory, std::size_t size)
    {
        Count(__builtin_return_address(0));
        return __libc_realloc(memory, size);
    }
}

void* operator new(std::size_t size)
{
    Count(__builtin_return_address(0));
    void* const memory = __libc_malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept
{
    Count(__builtin_return_address(0));
    return __libc_malloc(size);
}
