// Writes the items the store is given into record bodies, every field in the order of the
// item tables of RecordSchema.cpp.
#pragma once

#include "BigEndian.h"
#include "ConfigItems.h"
#include "HalItems.h"
#include "VideoMgrItems.h"

namespace mdj {

void PutItem(BodyWriter& out, const GpsStatusItem& item);
void PutItem(BodyWriter& out, const VideoMgrStreamQualityItem& item);
void PutItem(BodyWriter& out, const VehicleInfo& item);
void PutItem(BodyWriter& out, const Officer& item);
void PutItem(BodyWriter& out, const DepartmentInfo& item);
void PutItem(BodyWriter& out, const SystemInfo& item);
void PutItem(BodyWriter& out, const VideoRecordingSettings& item);

}  // namespace mdj
