#include "oxtHostRegistry.h"

#include <cstring>

namespace oxthost {
namespace {

constexpr std::size_t kQuarantineSize = 65536;
constexpr std::size_t kMisusesKept = 1000;

} // namespace

const char *nameOf(Kind kind) {
    static const char *const names[kKindCount] = {"string",    "array",   "enumeration", "instance", "object path",
                                                  "arguments", "context", "result",      "date-time"};
    return names[static_cast<int>(kind)];
}

ScopeId Registry::newScope() {
    const std::lock_guard<std::mutex> guard(lock_);
    return ++lastScope_;
}

void Registry::add(std::shared_ptr<void> shell, std::shared_ptr<Body> body, ScopeId scope, bool lent) {
    const std::lock_guard<std::mutex> guard(lock_);
    const void *object = shell.get();
    const Kind kind = body->kind;
    if (scope != kOwnedByProvider)
        scopes_[scope].insert(object);
    live_[object] = Entry{std::move(shell), std::move(body), scope, lent};
    ++counts_[static_cast<int>(kind)];
}

Registry::Entry &Registry::find(const void *object, Kind kind, const char *slot) {
    const auto entry = live_.find(object);
    if (entry != live_.end() && entry->second.body->kind == kind)
        return entry->second;
    std::string sentence = std::string(slot) + ": ";
    if (entry != live_.end())
        sentence += std::string("given ") + nameOf(entry->second.body->kind) + " for " + nameOf(kind);
    else if (object == nullptr)
        sentence += std::string("given NULL for ") + nameOf(kind);
    else if (dead_.count(object) != 0)
        sentence += (std::strcmp(slot, "release") == 0 ? "double release of " : "use after the end of ") +
                    std::string(nameOf(kind));
    else
        sentence += std::string("given an unknown pointer for ") + nameOf(kind);
    misuseLocked(sentence);
    throw Refusal{CMPI_RC_ERR_INVALID_HANDLE};
}

std::shared_ptr<Body> Registry::use(const void *object, Kind kind, const char *slot) {
    const std::lock_guard<std::mutex> guard(lock_);
    if (object == nullptr || object != lastUsed_ ||
        lastBody_->kind != kind) { // a provider fills one object after another
        lastBody_ = find(object, kind, slot).body;
        lastUsed_ = object;
    }
    return lastBody_;
}

void Registry::release(const void *object, Kind kind, const char *slot) {
    const std::lock_guard<std::mutex> guard(lock_);
    const Entry &entry = find(object, kind, slot);
    if (entry.lent) { // the caller's: it would be gone while the call still uses it
        misuseLocked(std::string(slot) + ": ended " + nameOf(kind) + " that was an argument of the call");
        throw Refusal{CMPI_RC_ERR_INVALID_HANDLE};
    }
    const auto scope = scopes_.find(entry.scope);
    if (scope != scopes_.end())
        scope->second.erase(object);
    bury(object);
}

// The shell stays in quarantine for a while: as long as its memory is not given out again, a stale pointer is told as
// one and not taken for the next object.
void Registry::bury(const void *object) {
    const auto entry = live_.find(object);
    lastUsed_ = nullptr;
    lastBody_.reset();
    --counts_[static_cast<int>(entry->second.body->kind)];
    dead_.insert(object);
    quarantine_.push_back(std::move(entry->second.shell));
    live_.erase(entry);
    if (quarantine_.size() > kQuarantineSize) {
        dead_.erase(quarantine_.front().get());
        quarantine_.pop_front();
    }
}

void Registry::endScope(ScopeId scope) {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = scopes_.find(scope);
    if (found == scopes_.end())
        return;
    for (const void *object : found->second)
        bury(object);
    scopes_.erase(found);
}

LiveObjects Registry::live() const {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto of = [this](Kind kind) { return counts_[static_cast<int>(kind)]; };
    LiveObjects live;
    live.strings = of(Kind::String);
    live.arrays = of(Kind::Array);
    live.enumerations = of(Kind::Enumeration);
    live.instances = of(Kind::Instance);
    live.paths = of(Kind::Path);
    live.args = of(Kind::Args);
    live.contexts = of(Kind::Context);
    live.results = of(Kind::Result);
    live.dateTimes = of(Kind::DateTime);
    return live;
}

void Registry::misuseLocked(const std::string &sentence) {
    if (misuses_.size() < kMisusesKept) // a provider that repeats one for ever must not fill the memory
        misuses_.push_back(sentence);
}

void Registry::misuse(const std::string &sentence) {
    const std::lock_guard<std::mutex> guard(lock_);
    misuseLocked(sentence);
}

std::vector<std::string> Registry::misuses() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return misuses_;
}

long FailPlan::set(const std::string &service, long n) {
    const std::lock_guard<std::mutex> guard(lock_);
    const long counted = counted_;
    service_ = service;
    failing_ = n;
    counted_ = 0;
    armed_ = true;
    return counted;
}

void FailPlan::count(const char *slot) {
    if (!armed_)
        return;
    const std::lock_guard<std::mutex> guard(lock_);
    // "*" leaves releases out: a provider can do nothing about one that fails.
    if (service_ != slot && (service_ != "*" || std::strcmp(slot, "release") == 0))
        return;
    if (++counted_ == failing_)
        throw Refusal{CMPI_RC_ERR_FAILED};
}

} // namespace oxthost
