#include "history.h"

#include <algorithm>

namespace oxttool {

void History::add(const Measurement &measured) {
    while (!points_.empty() && points_.back().time >= measured.time)
        points_.pop_back();
    // A measurement soon after the last one, as a change makes it, takes its place unless that would leave a gap.
    const auto count = points_.size();
    if (count >= 2 && measured.time - points_[count - 2].time < kLeast)
        points_.pop_back();
    points_.push_back(measured);

    const auto isOld = [&](const Measurement &point) { return point.time < measured.time - kDay; };
    points_.erase(points_.begin(), std::find_if_not(points_.begin(), points_.end(), isOld));
    // Of the points that are no longer fine, the one stays that is a step behind the last that stayed.
    const auto fine = std::find_if(points_.begin(), points_.end(),
                                   [&](const Measurement &point) { return point.time >= measured.time - kFine; });
    auto kept = points_.begin();
    for (auto point = points_.begin(); point != fine; ++point)
        if (kept == points_.begin() || point->time - (kept - 1)->time >= kStep)
            *kept++ = *point;
    points_.erase(kept, fine);
}

} // namespace oxttool
