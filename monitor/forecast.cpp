#include "forecast.h"

#include <algorithm>
#include <cstddef>

namespace oxttool {

namespace {

constexpr std::int64_t kWindows[] = {120, 900, 7200, History::kDay};
constexpr std::size_t kLeastPoints = 8;
constexpr std::size_t kMostPoints = 48; // pairs grow with the square
constexpr double kSteady = 0.85;        // the share of slopes that fall
constexpr double kYear = 366.0 * 24 * 3600;
constexpr int kOftenFreed = 2;

using Points = std::vector<Measurement>;

// At most kMostPoints of the points from `begin` on, evenly spread, the newest included.
Points spread(Points::const_iterator begin, Points::const_iterator end) {
    const auto count = static_cast<std::size_t>(end - begin);
    Points chosen;
    const std::size_t wanted = std::min(count, kMostPoints);
    for (std::size_t i = 1; i <= wanted; ++i)
        chosen.push_back(begin[static_cast<std::ptrdiff_t>(i * count / wanted) - 1]);
    return chosen;
}

double freeOf(const Measurement &point) {
    return static_cast<double>(point.freeMiB);
}

// MiB a second; nothing unless it is a steady fall.
std::optional<double> steadyFall(const Points &points) {
    std::vector<double> slopes;
    std::size_t falling = 0;
    for (std::size_t j = 1; j < points.size(); ++j)
        for (std::size_t i = 0; i < j; ++i) {
            slopes.push_back((freeOf(points[j]) - freeOf(points[i])) /
                             static_cast<double>(points[j].time - points[i].time));
            falling += slopes.back() < 0 ? 1U : 0U;
        }
    if (static_cast<double>(falling) < kSteady * static_cast<double>(slopes.size()))
        return std::nullopt;
    const auto middle = slopes.begin() + static_cast<std::ptrdiff_t>(slopes.size() / 2);
    std::nth_element(slopes.begin(), middle, slopes.end());
    return *middle;
}

// Whether a fall of `depth` down to the newest point has been seen to be made good before: the space was freed again
// several times, and what is free now is not far below the lowest before.
bool isMadeGood(Points::const_iterator oldest, Points::const_iterator windowBegin, const Measurement &newest,
                double depth) {
    int freed = 0;
    double lowest = freeOf(*oldest), top = lowest, bottom = lowest; // top and bottom of the fall at hand
    for (auto point = oldest; point != windowBegin; ++point) {
        const double free = freeOf(*point);
        lowest = std::min(lowest, free);
        const bool rose = bottom < top && free > bottom + depth / 2;
        freed += rose ? 1 : 0;
        if (rose || free > top)
            top = bottom = free;
        bottom = std::min(bottom, free);
    }
    // Of old falls not every point is kept, the lowest one least likely.
    return freed >= kOftenFreed && freeOf(newest) >= lowest - depth / 2;
}

} // namespace

std::optional<Forecast> forecastOf(const Points &points) {
    if (points.size() < kLeastPoints)
        return std::nullopt;
    const Measurement &newest = points.back();
    for (const std::int64_t window : kWindows) {
        const auto begin = std::find_if(points.begin(), points.end(),
                                        [&](const Measurement &point) { return point.time >= newest.time - window; });
        const Points chosen = spread(begin, points.end());
        if (chosen.size() < kLeastPoints || newest.time - chosen.front().time < window / 2)
            continue;
        const auto slope = steadyFall(chosen);
        if (!slope)
            continue;
        const double depth = freeOf(chosen.front()) - freeOf(newest);
        const double seconds = freeOf(newest) / -*slope;
        if (begin != points.begin() && isMadeGood(points.begin(), begin, newest, depth))
            continue;
        if (seconds > kYear)
            return std::nullopt;
        return Forecast{-*slope * 3600, seconds};
    }
    return std::nullopt;
}

} // namespace oxttool
