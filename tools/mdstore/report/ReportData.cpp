#include "report/ReportData.h"

#include <algorithm>

#include "JournalReader.h"
#include "RecordSchema.h"
#include "reading/FieldBag.h"
#include "verbs/Summary.h"

namespace report {

namespace {

// Lanes of fixed place, in the order they are drawn, before microphones and cameras.
enum FixedLane : unsigned {
    kRecording,
    kCovert,
    kFirstInput,
    kCrash = kFirstInput + summary::kInputCount,
    kBookmarks,
    kFixedCount
};

double Degrees(long long degrees, long long minutes, long long fraction, bool negative) {
    const double value = degrees + (minutes + fraction / 10000.0) / 60.0;
    return negative ? -value : value;
}

class DriveSink : public mdj::JournalSink {
public:
    DriveSink(Drive& out, AxisClock& clock) : out_(out), clock_(clock) {
        fixed_[kRecording].name = "recording";
        fixed_[kCovert].name = "covert mode";
        for (unsigned i = 0; i < summary::kInputCount; ++i) {
            fixed_[kFirstInput + i].name = summary::kInputNames[i];
        }
        fixed_[kCrash].name = "crash";
        fixed_[kBookmarks].name = "bookmarks";
        fixed_[kBookmarks].kind = LaneKind::kMarks;
    }

    bool Record(const mdj::SegmentFile&, const mdj::RecordView& record) override {
        clock_.See(record);
        // Snapshots repeat values already drawn; records without any tick have no place.
        const std::uint32_t time =
            mdj::RecordTime(record.op, record.stamp, record.body, record.size);
        if (record.op == mdj::kOpWriteFullState || time == 0 || time == 0xFFFFFFFFu) {
            return true;
        }
        fields_.Clear();
        if (!mdj::WalkRecord(record.op, record.body, record.size, &fields_)) {
            return true;
        }
        out_.first = out_.anyTime && out_.first < time ? out_.first : time;
        out_.last = out_.anyTime && out_.last > time ? out_.last : time;
        out_.anyTime = true;
        Take(record.op, time);
        return true;
    }

    void Trouble(const mdj::SegmentFile&, mdj::Problem, std::size_t, std::size_t) override {}

    void Finish() {
        // Senders stamp their own ticks, so records need not arrive in tick order.
        const auto byTick = [](const auto& a, const auto& b) { return a.tick < b.tick; };
        for (Lane& lane : fixed_) {
            std::stable_sort(lane.changes.begin(), lane.changes.end(), byTick);
        }
        for (auto& mic : mics_) {
            std::stable_sort(mic.second.lane.changes.begin(), mic.second.lane.changes.end(),
                             byTick);
        }
        for (auto& camera : cameras_) {
            std::stable_sort(camera.second.changes.begin(), camera.second.changes.end(), byTick);
        }
        std::stable_sort(out_.track.begin(), out_.track.end(), byTick);
        for (auto& source : out_.speeds) {
            std::stable_sort(source.second.begin(), source.second.end(), byTick);
        }
        std::sort(out_.bookmarks.begin(), out_.bookmarks.end());
        out_.lanes.assign(fixed_, fixed_ + kFixedCount);
        for (auto& mic : mics_) {
            out_.lanes.push_back(mic.second.lane);
        }
        for (auto& camera : cameras_) {
            out_.lanes.push_back(camera.second);
        }
    }

private:
    struct Microphone {
        Lane lane;
        bool present = false;
        bool active = false;
    };

    long long F(const char* name) const { return fields_.Value(name); }

    static void Set(Lane& lane, std::uint32_t tick, int value) {
        lane.changes.push_back(Change{tick, value});
    }

    Microphone& Mic(unsigned number) {
        Microphone& mic = mics_[number];
        if (mic.lane.name.empty()) {
            mic.lane.name = "microphone " + std::to_string(number);
            mic.lane.kind = LaneKind::kMicrophone;
        }
        return mic;
    }

    void TakeState(std::uint32_t time) {
        const long long tag = F("tag");
        bool on = false;
        const int input = summary::InputOfTag(tag, on);
        if (input >= 0) {
            Set(fixed_[kFirstInput + static_cast<unsigned>(input)], time, on ? 1 : 0);
        } else if (tag == 70 || tag == 71) {
            Set(fixed_[kRecording], time, tag == 70 ? 1 : 0);
        } else if (tag == 58 || tag == 59) {
            Set(fixed_[kCovert], time, tag == 58 ? 1 : 0);
        } else if (tag == 66 || tag == 67) {
            Set(fixed_[kCrash], time, tag == 66 ? 1 : 0);
        }
    }

    void TakeGps(std::uint32_t time) {
        TrackPoint point;
        point.tick = time;
        point.latitude = Degrees(F("item.latDegrees"), F("item.latMinutes"),
                                 F("item.latMinuteFraction"), F("item.latHemisphere") != 1);
        point.longitude = Degrees(F("item.lonDegrees"), F("item.lonMinutes"),
                                  F("item.lonMinuteFraction"), F("item.lonHemisphere") != 1);
        out_.track.push_back(point);
    }

    void TakeSpeed(std::uint32_t time) {
        const unsigned source = static_cast<unsigned>(F("source"));
        out_.speeds[source].push_back(SpeedSample{time, static_cast<long>(F("speed"))});
        // The GPS speed is reported right after its position, with the same tick.
        if (source == 1 && !out_.track.empty() && out_.track.back().tick == time &&
            !out_.track.back().hasSpeed) {
            out_.track.back().hasSpeed = true;
            out_.track.back().speed = static_cast<long>(F("speed"));
        }
    }

    void Take(std::uint8_t op, std::uint32_t time) {
        switch (op) {
            case mdj::kOpReportStateData:
                TakeState(time);
                break;
            case mdj::kOpReportBookmark:
                Set(fixed_[kBookmarks], time, 1);
                out_.bookmarks.push_back(time);
                break;
            case mdj::kOpReportGps:
                TakeGps(time);
                break;
            case mdj::kOpReportSpeed:
                TakeSpeed(time);
                break;
            case mdj::kOpReportMicPresent:
            case mdj::kOpReportMicState: {
                Microphone& mic = Mic(static_cast<unsigned>(F("mic")));
                (op == mdj::kOpReportMicPresent ? mic.present : mic.active) =
                    F(op == mdj::kOpReportMicPresent ? "present" : "active") != 0;
                Set(mic.lane, time, mic.active ? 2 : mic.present ? 1 : 0);  // active: present too
                break;
            }
            case mdj::kOpReportCameraState: {
                const unsigned port = static_cast<unsigned>(F("port"));
                Lane& lane = cameras_[port];
                if (lane.name.empty()) {
                    lane.name = "camera " + std::to_string(port);
                    lane.kind = LaneKind::kCamera;
                }
                Set(lane, time, static_cast<int>(F("state")));
                break;
            }
            default:
                break;
        }
    }

    Drive& out_;
    AxisClock& clock_;
    summary::FieldBag fields_;
    Lane fixed_[kFixedCount];
    std::map<unsigned, Microphone> mics_;
    std::map<unsigned, Lane> cameras_;
};

}  // namespace

bool ReadDrive(const std::string& path, Drive& out, AxisClock& clock) {
    out = Drive();
    DriveSink sink(out, clock);
    if (!mdj::ReadJournal(path, sink)) {
        return false;
    }
    sink.Finish();
    return true;
}

}  // namespace report
