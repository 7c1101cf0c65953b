// Clients of the servers of the vehicle system. Each is a SubscribeClient bound to its server's
// endpoint name (LinxServerNameList).
#pragma once

#include "LinxIpc.h"
#include "Subscribe.h"

class ConfigClient : public SubscribeClient {
public:
    ConfigClient(LinxIpc& ipc, int timeoutMs);
};

class FpgaClient : public SubscribeClient {
public:
    explicit FpgaClient(LinxIpc& ipc);
};

class GpsHalClient : public SubscribeClient {
public:
    explicit GpsHalClient(LinxIpc& ipc);
};

class RadarHalClient : public SubscribeClient {
public:
    explicit RadarHalClient(LinxIpc& ipc);
};

class MicClient : public SubscribeClient {
public:
    explicit MicClient(LinxIpc& ipc);
};

class VideoMgrClient : public SubscribeClient {
public:
    explicit VideoMgrClient(LinxIpc& ipc);
};

class AccelHalClient : public SubscribeClient {
public:
    explicit AccelHalClient(LinxIpc& ipc);
};

class TempHalClient : public SubscribeClient {
public:
    explicit TempHalClient(LinxIpc& ipc);
};

// The state manager publishes its recording and covert-mode events as items carrying the
// event's tick (SystickItem).
class StateMgrClient : public SubscribeClient {
public:
    static const unsigned int kRecordStartItem = 1;
    static const unsigned int kRecordStopItem = 2;
    static const unsigned int kEnterCovertModeItem = 3;
    static const unsigned int kExitCovertModeItem = 4;

    StateMgrClient(LinxIpc& ipc, int timeoutMs);
    // true = subscribed.
    bool SubscribeForRecordStart(unsigned int notifyId, LinxHandler handler, void* context);
    bool SubscribeForRecordStop(unsigned int notifyId, LinxHandler handler, void* context);
    bool SubscribeForEnterCovertMode(unsigned int notifyId, LinxHandler handler, void* context);
    bool SubscribeForExitCovertMode(unsigned int notifyId, LinxHandler handler, void* context);
};
