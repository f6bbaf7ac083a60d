#pragma once

namespace zeb::tolvo::ipc
{

/// Which server `ZmqConnectorFactory::CreateZmqServerConnector` builds.
enum class ServerType : int
{
    OnePriority = 0,   ///< one front-end, requests answered in order of arrival
    TwoPriorities = 1, ///< a second front-end whose requests are answered ahead of the ordinary ones
};

} // namespace zeb::tolvo::ipc
