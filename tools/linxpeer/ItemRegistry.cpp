#include "ItemRegistry.h"

#include "ConfigItems.h"
#include "HalItems.h"
#include "LinxIpc.h"
#include "MicItems.h"
#include "StreamingLvsStateItem.h"
#include "VideoMgrItems.h"

namespace {

template <typename T>
std::string NumberText(T value) {
    if constexpr (std::is_signed<T>::value) {
        return std::to_string(static_cast<long long>(value));
    } else {
        return std::to_string(static_cast<unsigned long long>(value));
    }
}

// A plain number (or bool) member of a record item.
template <class C, typename T>
ItemField Number(const char* name, T C::*member) {
    return {name,
            [member](Item& item, const std::string& text) {
                return codec::ParseNumber(text, static_cast<C&>(item).*member);
            },
            [member](const Item& item) { return NumberText(static_cast<const C&>(item).*member); }};
}

// A number reached through a getter and a setter.
template <class C, typename T>
ItemField Accessor(const char* name, std::function<T(const C&)> get,
                   std::function<void(C&, T)> set) {
    return {name,
            [set](Item& item, const std::string& text) {
                T value;
                if (!codec::ParseNumber(text, value)) {
                    return false;
                }
                set(static_cast<C&>(item), value);
                return true;
            },
            [get](const Item& item) { return NumberText(get(static_cast<const C&>(item))); }};
}

// A member item of a record (StringItem, UShortItem, BoolItem).
template <class C>
ItemField Member(const char* name, StringItem C::*member) {
    return {name,
            [member](Item& item, const std::string& text) {
                (static_cast<C&>(item).*member).Set(text.c_str());
                return text.size() <= StringItem::kMaxLength;
            },
            [member](const Item& item) {
                return std::string((static_cast<const C&>(item).*member).Get());
            }};
}
template <class C, class M>
ItemField Member(const char* name, M C::*member) {
    typedef decltype((static_cast<C*>(nullptr)->*member).Get()) T;
    return Accessor<C, T>(
        name, [member](const C& item) { return (item.*member).Get(); },
        [member](C& item, T value) { (item.*member).Set(value); });
}

// One element of an array member; enumerations are set and shown as their number.
template <class C, typename E, std::size_t N>
ItemField Element(const std::string& name, E (C::*member)[N], std::size_t index) {
    typedef typename std::conditional<std::is_enum<E>::value, unsigned int, E>::type T;
    return {name,
            [member, index](Item& item, const std::string& text) {
                T value;
                if (!codec::ParseNumber(text, value)) {
                    return false;
                }
                (static_cast<C&>(item).*member)[index] = static_cast<E>(value);
                return true;
            },
            [member, index](const Item& item) {
                return NumberText(static_cast<T>((static_cast<const C&>(item).*member)[index]));
            }};
}

template <class C>
std::function<std::unique_ptr<Item>()> Maker() {
    return [] { return std::unique_ptr<Item>(new C()); };
}

// The microphones of a status response as "POSITION:PRESENT:ACTIVE,..." ("" for none).
ItemField MicEntries() {
    return {
        "mics",
        [](Item& item, const std::string& text) {
            MicStatusResponse& status = static_cast<MicStatusResponse&>(item);
            status.Clear();
            std::size_t start = 0;
            while (start < text.size()) {
                std::size_t end = text.find(',', start);
                end = end == std::string::npos ? text.size() : end;
                const std::string entry = text.substr(start, end - start);
                const std::size_t a = entry.find(':');
                const std::size_t b = a == std::string::npos ? a : entry.find(':', a + 1);
                unsigned int position = 0;
                bool present = false;
                bool active = false;
                if (b == std::string::npos || !codec::ParseNumber(entry.substr(0, a), position) ||
                    !codec::ParseNumber(entry.substr(a + 1, b - a - 1), present) ||
                    !codec::ParseNumber(entry.substr(b + 1), active) ||
                    !status.Add(static_cast<e_MicrophonePosition>(position), present, active)) {
                    return false;
                }
                start = end + 1;
            }
            return true;
        },
        [](const Item& item) {
            const MicStatusResponse& status = static_cast<const MicStatusResponse&>(item);
            std::string text;
            for (unsigned int i = 0; i < status.Count(); ++i) {
                const MicStatusResponse::Entry& entry = status.EntryAt(i);
                text += (i == 0 ? "" : ",") + NumberText(static_cast<unsigned>(entry.position)) +
                        ":" + NumberText(entry.present) + ":" + NumberText(entry.active);
            }
            return text;
        }};
}

std::vector<ItemClass> BuildClasses() {
    typedef ExternalMgrApi::StreamingLvsStateItem Lvs;
    std::vector<ItemClass> classes = {
        {"FpgaExternalEventItem",
         Maker<FpgaExternalEventItem>(),
         {Number("changedMask", &FpgaExternalEventItem::changedMask),
          Number("inputLevels", &FpgaExternalEventItem::inputLevels),
          Number("debounce", &FpgaExternalEventItem::debounce),
          Number("tick", &FpgaExternalEventItem::tick)}},
        {"GpsStatusItem",
         Maker<GpsStatusItem>(),
         {Number("latDegrees", &GpsStatusItem::latDegrees),
          Number("latMinutes", &GpsStatusItem::latMinutes),
          Number("latMinuteFraction", &GpsStatusItem::latMinuteFraction),
          Number("latHemisphere", &GpsStatusItem::latHemisphere),
          Number("lonDegrees", &GpsStatusItem::lonDegrees),
          Number("lonMinutes", &GpsStatusItem::lonMinutes),
          Number("lonMinuteFraction", &GpsStatusItem::lonMinuteFraction),
          Number("lonHemisphere", &GpsStatusItem::lonHemisphere),
          Number("altitude", &GpsStatusItem::altitude),
          Number("speed", &GpsStatusItem::speed),
          Number("heading", &GpsStatusItem::heading),
          Number("magneticVariation", &GpsStatusItem::magneticVariation),
          Number("satellitesInView", &GpsStatusItem::satellitesInView),
          Number("fixStatus", &GpsStatusItem::fixStatus),
          Number("fixMode", &GpsStatusItem::fixMode),
          Number("hdop", &GpsStatusItem::hdop),
          Number("satellitesUsed", &GpsStatusItem::satellitesUsed),
          Number("geoidSeparation", &GpsStatusItem::geoidSeparation),
          Number("utcTime", &GpsStatusItem::utcTime),
          Number("dataValid", &GpsStatusItem::dataValid),
          Number("tick", &GpsStatusItem::tick)}},
        {"RadarItem",
         Maker<RadarItem>(),
         {Number("status", &RadarItem::status), Number("patrolSpeed", &RadarItem::patrolSpeed),
          Number("targetSpeed", &RadarItem::targetSpeed),
          Number("fastestSpeed", &RadarItem::fastestSpeed),
          Number("lockedSpeed", &RadarItem::lockedSpeed), Number("tick", &RadarItem::tick)}},
        {"MicStatusResponse",
         Maker<MicStatusResponse>(),
         {MicEntries(), Number("tick", &MicStatusResponse::tick)}},
        {"TempStatus",
         Maker<TempStatus>(),
         {Element("temperature0", &TempStatus::temperatures, 0),
          Element("temperature1", &TempStatus::temperatures, 1),
          Element("temperature2", &TempStatus::temperatures, 2),
          Element("temperature3", &TempStatus::temperatures, 3),
          Number("tick", &TempStatus::tick)}},
        {"CrashItem",
         Maker<CrashItem>(),
         {Number("crash", &CrashItem::crash), Number("tick", &CrashItem::tick)}},
        {"VideoMgrCameraItem", Maker<VideoMgrCameraItem>(), {}},
        {"VideoMgrStreamQualityItem", Maker<VideoMgrStreamQualityItem>(), {}},
        {"VehicleInfo",
         Maker<VehicleInfo>(),
         {Member("vehicleId", &VehicleInfo::vehicleId),
          Member("licensePlate", &VehicleInfo::licensePlate),
          Member("description", &VehicleInfo::description)}},
        {"SystemInfo",
         Maker<SystemInfo>(),
         {Member("systemName", &SystemInfo::systemName),
          Member("unitNumber", &SystemInfo::unitNumber)}},
        {"DepartmentInfo",
         Maker<DepartmentInfo>(),
         {Member("departmentId", &DepartmentInfo::departmentId),
          Member("name", &DepartmentInfo::name)}},
        {"Officer",
         Maker<Officer>(),
         {Member("officerId", &Officer::officerId), Member("name", &Officer::name)}},
        {"VideoRecordingSettings",
         Maker<VideoRecordingSettings>(),
         {Member("preEventSeconds", &VideoRecordingSettings::preEventSeconds),
          Member("postEventSeconds", &VideoRecordingSettings::postEventSeconds),
          Member("resolution", &VideoRecordingSettings::resolution),
          Member("frameRate", &VideoRecordingSettings::frameRate),
          Member("recordAudio", &VideoRecordingSettings::recordAudio)}},
        {"SystickItem",
         Maker<SystickItem>(),
         {Accessor<SystickItem, unsigned int>(
             "tick", [](const SystickItem& item) { return item.Get(); },
             [](SystickItem& item, unsigned int value) { item.Set(value); })}},
        {"BoolItem",
         Maker<BoolItem>(),
         {Accessor<BoolItem, bool>(
             "value", [](const BoolItem& item) { return item.Get(); },
             [](BoolItem& item, bool value) { item.Set(value); })}},
        {"UShortItem",
         Maker<UShortItem>(),
         {Accessor<UShortItem, unsigned short>(
             "value", [](const UShortItem& item) { return item.Get(); },
             [](UShortItem& item, unsigned short value) { item.Set(value); })}},
        {"StringItem",
         Maker<StringItem>(),
         {{"text",
           [](Item& item, const std::string& text) {
               static_cast<StringItem&>(item).Set(text.c_str());
               return text.size() <= StringItem::kMaxLength;
           },
           [](const Item& item) {
               return std::string(static_cast<const StringItem&>(item).Get());
           }}}},
        {"StreamingLvsStateItem",
         Maker<Lvs>(),
         {Accessor<Lvs, bool>(
              "enabled", [](const Lvs& item) { return item.Enabled(); },
              [](Lvs& item, bool value) { item.SetEnabled(value); }),
          Accessor<Lvs, bool>(
              "highQuality", [](const Lvs& item) { return item.HighQuality(); },
              [](Lvs& item, bool value) { item.SetHighQuality(value); }),
          Accessor<Lvs, unsigned short>(
              "camera", [](const Lvs& item) { return item.Camera(); },
              [](Lvs& item, unsigned short value) { item.SetCamera(value); }),
          {"address",
           [](Item& item, const std::string& text) {
               static_cast<Lvs&>(item).SetAddress(text.c_str());
               return text.size() <= StringItem::kMaxLength;
           },
           [](const Item& item) { return std::string(static_cast<const Lvs&>(item).Address()); }},
          Accessor<Lvs, unsigned short>(
              "port", [](const Lvs& item) { return item.Port(); },
              [](Lvs& item, unsigned short value) { item.SetPort(value); })}},
    };
    // The array-shaped video items get one field per element.
    for (ItemClass& itemClass : classes) {
        if (itemClass.name == "VideoMgrCameraItem") {
            for (std::size_t i = 0; i < VideoMgrCameraItem::kEntries; ++i) {
                itemClass.fields.push_back(
                    Element("camera" + std::to_string(i), &VideoMgrCameraItem::cameraState, i));
            }
            itemClass.fields.push_back(Number("tick", &VideoMgrCameraItem::tick));
        } else if (itemClass.name == "VideoMgrStreamQualityItem") {
            for (std::size_t i = 0; i < VideoMgrStreamQualityItem::kStreams; ++i) {
                const std::string n = std::to_string(i);
                itemClass.fields.push_back(Accessor<VideoMgrStreamQualityItem, unsigned int>(
                    ("quality" + n).c_str(),
                    [i](const VideoMgrStreamQualityItem& item) { return item.streams[i].quality; },
                    [i](VideoMgrStreamQualityItem& item, unsigned int v) {
                        item.streams[i].quality = v;
                    }));
                itemClass.fields.push_back(Accessor<VideoMgrStreamQualityItem, unsigned int>(
                    ("bitRateKbps" + n).c_str(),
                    [i](const VideoMgrStreamQualityItem& item) {
                        return item.streams[i].bitRateKbps;
                    },
                    [i](VideoMgrStreamQualityItem& item, unsigned int v) {
                        item.streams[i].bitRateKbps = v;
                    }));
                itemClass.fields.push_back(Accessor<VideoMgrStreamQualityItem, unsigned short>(
                    ("frameRate" + n).c_str(),
                    [i](const VideoMgrStreamQualityItem& item) {
                        return item.streams[i].frameRate;
                    },
                    [i](VideoMgrStreamQualityItem& item, unsigned short v) {
                        item.streams[i].frameRate = v;
                    }));
                itemClass.fields.push_back(Accessor<VideoMgrStreamQualityItem, unsigned short>(
                    ("resolution" + n).c_str(),
                    [i](const VideoMgrStreamQualityItem& item) {
                        return item.streams[i].resolution;
                    },
                    [i](VideoMgrStreamQualityItem& item, unsigned short v) {
                        item.streams[i].resolution = v;
                    }));
            }
            itemClass.fields.push_back(Number("tick", &VideoMgrStreamQualityItem::tick));
        }
    }
    return classes;
}

}  // namespace

namespace items {

const std::vector<ItemClass>& All() {
    static const std::vector<ItemClass> classes = BuildClasses();
    return classes;
}

const ItemClass* Find(const std::string& name) {
    for (const ItemClass& itemClass : All()) {
        if (itemClass.name == name) {
            return &itemClass;
        }
    }
    return nullptr;
}

bool Assign(const ItemClass& itemClass, Item& item, const std::vector<std::string>& assignments,
            std::string& error) {
    for (const std::string& assignment : assignments) {
        const std::size_t equals = assignment.find('=');
        const std::string name = assignment.substr(0, equals);
        const ItemField* field = nullptr;
        for (const ItemField& candidate : itemClass.fields) {
            field = candidate.name == name ? &candidate : field;
        }
        if (equals == std::string::npos || field == nullptr) {
            std::string known;
            for (const ItemField& candidate : itemClass.fields) {
                known += " " + candidate.name;
            }
            error = "'" + assignment + "' is not FIELD=VALUE of " + itemClass.name +
                    " (fields:" + known + ")";
            return false;
        }
        if (!field->set(item, assignment.substr(equals + 1))) {
            error = "'" + assignment + "': value not accepted";
            return false;
        }
    }
    return true;
}

NamedValues Values(const ItemClass& itemClass, const Item& item) {
    NamedValues values;
    for (const ItemField& field : itemClass.fields) {
        values.emplace_back(field.name, field.get(item));
    }
    return values;
}

std::string Text(const NamedValues& values) {
    std::string text;
    for (const auto& value : values) {
        text += text.empty() ? "" : " ";
        text += value.first + "=" + value.second;
    }
    return text;
}

bool Decode(const ItemClass& itemClass, const Bytes& payload, NamedValues& values) {
    // Decoding reads a fixed layout that may run past a short payload: give it the zeroed room
    // a received message has.
    Bytes room(payload);
    room.resize(payload.size() + IpcMessage::kGuardBytes, 0);
    std::unique_ptr<Item> item = itemClass.make();
    unsigned char* end = item->Decode(room.data());
    values = Values(itemClass, *item);
    return static_cast<std::size_t>(end - room.data()) <= payload.size();
}

}  // namespace items
