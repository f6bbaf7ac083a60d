#include "ipc-call/StandardStreams.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace zeb::tolvo::desk
{

namespace
{

void ThrowUnless(bool isGood, const char* stream)
{
    if (!isGood) throw std::system_error(errno, std::generic_category(), stream);
}

void WriteBytes(const void* bytes, std::size_t size)
{
    const bool isWritten = std::fwrite(bytes, 1, size, stdout) == size;
    ThrowUnless(isWritten && std::fflush(stdout) == 0, "standard output");
}

} // namespace

ipc::ByteVector ReadAll()
{
    ipc::ByteVector bytes;
    constexpr std::size_t kChunk = 65'536;
    std::array<unsigned char, kChunk> chunk; // NOLINT(cppcoreguidelines-pro-type-member-init): fread fills it
    std::size_t size = chunk.size();
    while (size == chunk.size()) // a terminal would be read again after its end
    {
        size = std::fread(chunk.data(), 1, chunk.size(), stdin);
        bytes.insert(bytes.end(), chunk.data(), chunk.data() + size);
    }
    ThrowUnless(std::ferror(stdin) == 0, "standard input");
    return bytes;
}

bool ReadLine(ipc::ByteVector& line)
{
    line.clear();
    int byte = 0;
    while ((byte = std::getc(stdin)) != EOF && byte != '\n') line.push_back(static_cast<unsigned char>(byte));
    ThrowUnless(std::ferror(stdin) == 0, "standard input");
    return byte != EOF || !line.empty();
}

void Write(const ipc::ByteVector& bytes) { WriteBytes(bytes.data(), bytes.size()); }

void Write(std::string_view text) { WriteBytes(text.data(), text.size()); }

} // namespace zeb::tolvo::desk
