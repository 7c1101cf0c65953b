// The external manager's client: live video streaming.
#pragma once

#include <string>

#include "Subscribe.h"

class ExternalMgrApi : public SubscribeClient {
public:
    using SubscribeClient::SubscribeClient;
    ~ExternalMgrApi() override;

    // True when live streaming is forced to high quality system-wide.
    static bool InLvsForceHqStreaming();

    // State of one live stream; the metadata manager defines it (items/).
    class StreamingLvsStateItem;
};
