// When a file system will be full, from the history of its free space. Pure.
//
// The rate is the median of the slopes between all pairs of points (Theil and Sen): single outliers do not move it. It
// is told only when the fall is steady, that is when nearly all of these slopes fall; one large file is a step and no
// trend. Two minutes, a quarter of an hour, two hours and a day are tried in this order, so that a runaway process is
// seen soon and slow growth at all. Where the space was freed again several times, as by the rotation of logs, a
// shorter fall counts only well below the lowest point so far.
#ifndef OXT_MONITOR_FORECAST_H
#define OXT_MONITOR_FORECAST_H

#include <optional>
#include <vector>

#include "history.h"

namespace oxttool {

struct Forecast {
    double mibPerHour = 0;    // by which the free space shrinks; above 0
    double secondsToFull = 0; // from the newest point on; at most a year
};

// None when there is no steady fall, or it would last longer than a year.
std::optional<Forecast> forecastOf(const std::vector<Measurement> &points);

} // namespace oxttool

#endif
