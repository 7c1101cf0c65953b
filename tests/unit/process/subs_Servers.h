// The server processes of the vehicle played by the test: each has its own endpoint under the
// process's real name and serves items through the real subscribe protocol. A thread of the
// test polls the endpoints while the manager, on the test's main thread, waits for answers.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

#include "ConfigItems.h"
#include "HalItems.h"
#include "HostInspect.h"
#include "ItemServer.h"
#include "LinxServerNameList.h"
#include "ManagerHarness.h"
#include "MicItems.h"
#include "ServerClients.h"
#include "StreamMgrApi.h"
#include "StreamingLvsStateItem.h"
#include "Subscribe.h"
#include "VideoMgrItems.h"

class ServerFarm {
public:
    ServerFarm() : streamMgr_(LinxServerNameList::Instance().Name(e_Process_StreamMgr)) {
        streamMgr_.Init();
        streamMgr_.RegisterHandler(StreamMgrApi::kCurrentlyRecordingRequest, Recording, this);
    }
    ~ServerFarm() { Stop(); }

    // Opens the endpoint of `process` (before Start, or while stopped).
    ItemServer& Add(e_Process process) {
        served_[process].reset(new Served(LinxServerNameList::Instance().Name(process)));
        return served_[process]->server;
    }
    // Closes the endpoint of `process`: its subscribers are forgotten, as after a crash.
    void Remove(e_Process process) { served_.erase(process); }
    ItemServer* Find(e_Process process) {
        const auto found = served_.find(process);
        return found == served_.end() ? nullptr : &found->second->server;
    }
    // Handles, on this thread, whatever has reached the servers' endpoints (while stopped).
    void Drain() {
        for (auto& served : served_) {
            while (served.second->ipc.Receive(20, 0, LinxIpc::emptyString, nullptr) == 0) {
            }
        }
    }
    // The stream manager's answer to the recording-in-progress request ("" = none).
    void SetRecording(const std::string& reid) { recording_ = reid; }

    void Start() {
        stop_ = false;
        thread_ = std::thread([this] {
            while (!stop_) {
                for (auto& served : served_) {
                    served.second->ipc.Receive(2, 0, LinxIpc::emptyString, nullptr);
                }
                streamMgr_.Receive(2, 0, LinxIpc::emptyString, nullptr);
            }
        });
    }
    void Stop() {
        stop_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }

private:
    struct Served {
        explicit Served(const std::string& name) : ipc(name), server(ipc) { ipc.Init(); }
        LinxIpc ipc;
        ItemServer server;
    };
    static void Recording(LinxIpc* ipc, void* context) {
        const std::string& reid = static_cast<ServerFarm*>(context)->recording_;
        const std::string sender = ipc->CurrentMessage().GetSender();
        std::vector<char> text(reid.c_str(), reid.c_str() + reid.size() + 1);
        IpcMessage answer;
        if (answer.Allocate(StreamMgrApi::kCurrentlyRecordingResponse,
                            static_cast<unsigned int>(text.size()), text.data()) == 0) {
            ipc->Notify(sender, answer, true);
        }
    }

    std::map<e_Process, std::unique_ptr<Served>> served_;
    LinxIpc streamMgr_;
    std::string recording_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// Every server of the vehicle with recognisable values.
struct Vehicle {
    VehicleInfo vehicle;
    SystemInfo system;
    DepartmentInfo department;
    Officer officer;
    VideoRecordingSettings recording;
    FpgaExternalEventItem inputs;
    GpsStatusItem gps;
    SystickItem stateEvent{77};
    RadarItem radar;
    MicStatusResponse mics;
    VideoMgrCameraItem cameras;
    VideoMgrStreamQualityItem quality;
    CrashItem crash;
    TempStatus temps;
    ExternalMgrApi::StreamingLvsStateItem stream;

    // One item served: its server, item id and the manager's notification id for it, in the
    // order the manager subscribes.
    struct Row {
        e_Process process;
        unsigned int itemId;
        unsigned int notifyId;
        Item* value;
    };
    std::vector<Row> rows{{e_Process_ConfigMgr, 10, 13492, &vehicle},
                          {e_Process_ConfigMgr, 7, 13493, &system},
                          {e_Process_ConfigMgr, 11, 13494, &department},
                          {e_Process_ConfigMgr, 12, 13495, &officer},
                          {e_Process_ConfigMgr, 13, 13496, &recording},
                          {e_Process_Fpga, 17, 13497, &inputs},
                          {e_Process_GpsHal, 1, 13504, &gps}};

    Vehicle() {
        // The state manager's events: record start and stop, enter and exit covert mode.
        for (unsigned int item = StateMgrClient::kRecordStartItem;
             item <= StateMgrClient::kExitCovertModeItem; ++item) {
            rows.push_back({e_Process_StateMgr, item, 13504 + item, &stateEvent});
        }
        rows.insert(rows.end(), {{e_Process_RadarHal, 1, 13510, &radar},
                                 {e_Process_MicMgr, 0, 13511, &mics},
                                 {e_Process_VideoMgr, 0, 13513, &cameras},
                                 {e_Process_VideoMgr, 1, 13514, &quality},
                                 {e_Process_AccelHal, 1, 13512, &crash},
                                 {e_Process_TempHal, 0, 13515, &temps}});
        for (unsigned int n = 0; n < 6; ++n) {
            rows.push_back({e_Process_ExternalMgr, 16 + n, 18952 + n, &stream});
        }
        vehicle.vehicleId.Set("CAR-17");
        // The server marks nothing as changed: the levels must be stored all the same.
        inputs.changedMask = 0;
        inputs.inputLevels = 0x8000 | 0x20000;  // lights and siren on
        gps.fixStatus = 1;
        gps.speed = 190;
        radar.status = 1;
        radar.patrolSpeed = 50;
        mics.Add(e_Mic_1, true, false);
        crash.crash = true;
        crash.tick = 3000;
    }

    // Opens every server's endpoint, except those listed.
    void Populate(ServerFarm& farm, const std::set<e_Process>& absent = {}) const {
        for (const Row& row : rows) {
            if (absent.count(row.process) == 0) {
                ItemServer* server = farm.Find(row.process);
                (server != nullptr ? *server : farm.Add(row.process)).Serve(row.itemId, *row.value);
            }
        }
    }
};

// A prepared manager and the vehicle's servers (except `absent`), before the start-up.
struct Rig {
    ManagerHarness h;
    Vehicle vehicle;
    ServerFarm farm;

    explicit Rig(const std::set<e_Process>& absent = {}) {
        EXPECT_TRUE(h.Prepare());
        vehicle.Populate(farm, absent);
    }
    // SubscribeToServers while the servers answer.
    bool StartUp() {
        farm.Start();
        const bool ok = h.manager->SubscribeToServers(h.ipc, false);
        farm.Stop();
        return ok;
    }
};

inline bool WatchdogRegistered() {
    hostinspect::WatchdogStatus status;
    return hostinspect::ReadWatchdog(e_Process_MetadataMgr, e_Thread_Main, status) &&
           status.subscribed;
}
