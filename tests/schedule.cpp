#include "schedule.h"

namespace explorer {

namespace {

constexpr std::size_t kMostDecisions = 400;

} // namespace

void Schedule::search(int preemptions) {
    trail_.clear();
    lots_.reset();
    most_ = preemptions;
}

bool Schedule::advance() {
    for (; !trail_.empty(); trail_.pop_back()) {
        Decision &last = trail_.back();
        while (++last.taken < last.costs.size())
            if (last.before + last.costs[last.taken] <= most_)
                return true;
    }
    return false;
}

void Schedule::drawLots(unsigned seed) {
    lots_ = std::make_unique<std::mt19937>(seed);
}

void Schedule::begin() {
    position_ = 0;
    if (lots_ != nullptr)
        trail_.clear();
}

std::optional<std::size_t> Schedule::choose(const std::vector<int> &costs) {
    const Decision *last = position_ > 0 ? &trail_[position_ - 1] : nullptr;
    const int before = last != nullptr ? last->before + last->costs[last->taken] : 0;
    // The first option is the only one left; or somebody goes round in a long wait, where all options are alike.
    if (lots_ == nullptr && (before + costs[1] > most_ || position_ == kMostDecisions))
        return 0;
    if (position_ == trail_.size()) {
        const std::size_t taken = lots_ != nullptr && (*lots_)() % 8 == 0 ? (*lots_)() % costs.size() : 0;
        trail_.push_back({taken, costs, before, ""});
    }
    const Decision &decision = trail_[position_++];
    if (decision.costs != costs)
        return std::nullopt;
    return decision.taken;
}

void Schedule::explain(const std::string &what) {
    trail_[position_ - 1].what = what;
}

std::string Schedule::text() const {
    std::string text;
    for (std::size_t i = 0; i < position_ && i < trail_.size(); ++i)
        if (trail_[i].taken != 0)
            text += "\n    decision " + std::to_string(i) + ": " + trail_[i].what;
    return text;
}

} // namespace explorer
