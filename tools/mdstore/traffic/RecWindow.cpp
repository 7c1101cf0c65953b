#include "traffic/TrafficRecords.h"

bool RecWindow::Has(std::size_t k) const {
    while (k >= base_ + held_.size() && !ended_) {
        Held held;
        ended_ = !reader_.Next(held.raw);
        if (ended_) {
            break;
        }
        const DriveRecord& raw = held.raw;
        held.rec.op = raw.op;
        mdj::WalkRecord(raw.op, raw.body.data(), raw.body.size(), &held.rec.v);
        held.rec.time = mdj::RecordTime(raw.op, raw.stamp, raw.body.data(), raw.body.size());
        held_.push_back(std::move(held));
    }
    return k >= base_ && k < base_ + held_.size();
}

void RecWindow::Forget(std::size_t k) {
    while (base_ < k && !held_.empty()) {
        held_.pop_front();
        ++base_;
    }
}
