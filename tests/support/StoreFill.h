// What tests report into a store: a GPS fix in a line, every free text a store keeps.
#pragma once

#include <string>

#include "DataStore.h"
#include "HalItems.h"

// A usable fix at degrees, minutes and ten-thousandths of a minute; hemisphere 1 is north or
// east, 0 south or west.
inline GpsStatusItem Fix(unsigned short latDegrees, unsigned short latMinutes, unsigned latFraction,
                         int latHemisphere, unsigned short lonDegrees, unsigned short lonMinutes,
                         unsigned lonFraction, int lonHemisphere) {
    GpsStatusItem gps;
    gps.latDegrees = latDegrees;
    gps.latMinutes = latMinutes;
    gps.latMinuteFraction = latFraction;
    gps.latHemisphere = latHemisphere;
    gps.lonDegrees = lonDegrees;
    gps.lonMinutes = lonMinutes;
    gps.lonMinuteFraction = lonFraction;
    gps.lonHemisphere = lonHemisphere;
    gps.fixStatus = 1;
    return gps;
}

// Reports the serial, a version, string data and every text of the vehicle, system, department
// and officer items, each the text `next(op, key)` gives (`key` as cat --json names it).
template <typename Next>
void ReportEveryText(DataStoreNormal& store, Next next) {
    store.ReportSystemSerialNum(next("ReportSystemSerialNum", "serial"));
    store.ReportVersion(e_COMPONENT_Build, next("ReportVersion", "version").c_str());
    store.ReportStringData(e_Tag_FillerString, next("ReportStringData", "text").c_str());
    VehicleInfo vehicle;
    vehicle.vehicleId.Set(next("ReportVehicleInfo", "item.vehicleId").c_str());
    vehicle.licensePlate.Set(next("ReportVehicleInfo", "item.licensePlate").c_str());
    vehicle.description.Set(next("ReportVehicleInfo", "item.description").c_str());
    store.ReportVehicleInfo(vehicle, true);
    SystemInfo system;
    system.systemName.Set(next("ReportSystemInfo", "item.systemName").c_str());
    system.unitNumber.Set(next("ReportSystemInfo", "item.unitNumber").c_str());
    store.ReportSystemInfo(system, true);
    DepartmentInfo department;
    department.departmentId.Set(next("ReportDepartmentInfo", "item.departmentId").c_str());
    department.name.Set(next("ReportDepartmentInfo", "item.name").c_str());
    store.ReportDepartmentInfo(department, true);
    Officer officer;
    officer.officerId.Set(next("ReportOfficerInfo", "item.officerId").c_str());
    officer.name.Set(next("ReportOfficerInfo", "item.name").c_str());
    store.ReportOfficerInfo(officer, true);
}
