#include "quillmere/RegistrationService.h"

#include "quillmere/Lines.h"
#include "quillmere/Questions.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace zeb::tolvo::desk
{

namespace
{

enum PollPosition : std::size_t
{
    kStop,
    kConnections,
    kServers,
    kRegistry,
    kFirstAddress,
};

bool IsReadable(const zmq::pollitem_t& item) { return (item.revents & ZMQ_POLLIN) != 0; }

/// Takes a limited number of messages, so that no socket keeps the others waiting.
template <typename Taker>
void TakeBurst(Router& router, Taker take)
{
    constexpr int kBurst = 100;
    for (int taken = 0; taken < kBurst; ++taken)
    {
        std::optional<Message> message = router.Receive();
        if (!message) return;
        take(std::move(*message));
    }
}

} // namespace

RegistrationService::RegistrationService(zmq::context_t& context, const std::string& servers,
                                         const std::string& clients, const std::optional<Access>& access,
                                         std::chrono::milliseconds quietTime, Tracer tracer)
    : mContext(context),
      mAccess(access),
      mFolder(clients),
      mConnections(context),
      mServers(context, servers, access, Connections::kDomain),
      mRegistry(context, mFolder.EndpointOf(kRegistryName), access),
      mSwitchboard(*this, mFolder.LongestName(), quietTime, std::move(tracer))
{
}

void RegistrationService::Run(int stop)
{
    RestoreOwn();
    for (;;)
    {
        std::vector<zmq::pollitem_t> items = MakePollItems(stop);
        const auto timeout = static_cast<long>(TimeUntilCatchUp().count());
        if (zmq_poll(items.data(), static_cast<int>(items.size()), timeout) < 0)
        {
            if (zmq_errno() == EINTR) continue;
            throw zmq::error_t();
        }
        if (IsReadable(items[kStop])) return;

        const auto now = std::chrono::steady_clock::now();
        if (IsReadable(items[kConnections])) mConnections.LetIn([&] { return mSwitchboard.AddConnection(); });
        if (IsReadable(items[kServers]))
            TakeBurst(mServers, [&](Message message) { mSwitchboard.TakeFromServer(std::move(message), now); });
        mSwitchboard.CatchUp(now);
        if (IsReadable(items[kRegistry])) AnswerQuestions();
        for (std::size_t position = kFirstAddress; position < items.size(); ++position)
        {
            if (!IsReadable(items[position])) continue;
            const std::size_t address = position - kFirstAddress;
            TakeBurst(mClients[address],
                      [&](Message message) { mSwitchboard.TakeFromClient(address, std::move(message), now); });
        }
    }
}

void RegistrationService::Bind(const std::string& address)
{
    if (address == kRegistryName) throw std::runtime_error("that is the registration service's own socket");
    mClients.emplace_back(mContext, mFolder.EndpointOf(address), mAccess);
}

void RegistrationService::Restore(std::size_t address)
{
    RestoreOwn();
    mClients[address].Restore();
}

int RegistrationService::SendToServer(std::string_view identity, zmq::message_t body)
{
    return mServers.Send(identity, std::move(body));
}

int RegistrationService::SendToClient(std::size_t address, std::string_view client, zmq::message_t body)
{
    return mClients[address].Send(client, std::move(body));
}

void RegistrationService::AnswerQuestions()
{
    const std::vector<ServerReport> reports = Report(); // one for all of a burst
    TakeBurst(mRegistry, [&](const Message& question) {
        const std::string answer = AnswerQuestion(question.body.to_string_view(), reports);
        mRegistry.Send(question.sender.to_string_view(), zmq::message_t(answer)); // one that has gone misses nothing
    });
}

void RegistrationService::RestoreOwn()
{
    try
    {
        if (mServers.Restore()) Note("the servers' endpoint had lost its socket file and is bound again");
        mRegistry.Restore();
    }
    catch (const std::exception& failure)
    {
        Note(failure.what());
    }
}

std::vector<zmq::pollitem_t> RegistrationService::MakePollItems(int stop)
{
    std::vector<zmq::pollitem_t> items(kFirstAddress + mClients.size());
    items[kStop] = {nullptr, stop, ZMQ_POLLIN, 0};
    items[kConnections] = mConnections.MakePollItem();
    items[kServers] = mServers.MakePollItem();
    items[kRegistry] = mRegistry.MakePollItem();
    std::transform(mClients.begin(), mClients.end(), items.begin() + kFirstAddress,
                   [](Router& clients) { return clients.MakePollItem(); });
    return items;
}

std::chrono::milliseconds RegistrationService::TimeUntilCatchUp() const
{
    using std::chrono::milliseconds;
    const auto next = mSwitchboard.NextCatchUp();
    if (!next) return milliseconds(-1);
    return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(*next - std::chrono::steady_clock::now()));
}

} // namespace zeb::tolvo::desk
