#include <ipc/ZmqConnectorFactory.h>

#include "common/Log.h"

#include <ipc/ZmqClientConnector.h>
#include <ipc/ZmqCommon.h>
#include <ipc/ZmqServerSequentialOnePriority.h>
#include <ipc/ZmqServerSequentialTwoPriorities.h>

#include <zmq.h>

namespace zeb::tolvo::ipc
{

ZmqConnectorFactory ZmqConnectorFactory::mInstance;

ZmqConnectorFactory::ZmqConnectorFactory() : mContext(zmq_ctx_new())
{
    if (mContext == nullptr)
    {
        TOLVO_IPC_LOG(kLogError, " ZmqConnectorFactory: Failed to create ZMQ context, %d", ZmqCommon::mLogger.c_str(),
                      zmq_errno());
    }
}

ZmqConnectorFactory::~ZmqConnectorFactory()
{
    if (mContext != nullptr) zmq_ctx_term(mContext);
}

ZmqConnectorFactory& ZmqConnectorFactory::GetInstance() { return mInstance; }

std::unique_ptr<AbstractClientConnector>
ZmqConnectorFactory::CreateZmqClientConnector(const std::string& endpoint, OperatingModeInterface& operatingMode)
{
    return std::make_unique<ZmqClientConnector>(endpoint, operatingMode, mContext);
}

ZmqServerConnector* ZmqConnectorFactory::CreateZmqServerConnector(const std::string& endpoint,
                                                                  const std::string& identity, ServerType type)
{
    if (type == ServerType::TwoPriorities) return new ZmqServerSequentialTwoPriorities(endpoint, mContext, identity);
    return new ZmqServerSequentialOnePriority(endpoint, mContext, identity);
}

} // namespace zeb::tolvo::ipc
