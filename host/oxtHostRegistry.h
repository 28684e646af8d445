// The registry of live objects: who owns each, whether a pointer is still good, and what the provider did wrong.
//
// An object belongs to a scope (a request, or a provider's own thread) and ends with it, or to the provider alone (a
// clone, a context for a thread) and ends when released. A released object's shell is kept in quarantine, so that its
// later use reaches us and is noted; only the oldest shells are let go. One mutex guards it all.
#ifndef OXT_HOST_REGISTRY_H
#define OXT_HOST_REGISTRY_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "oxtHostObjects.h"

namespace oxthost {

// Thrown inside the host and turned into a slot's natural failure at the boundary.
struct Refusal {
    CMPIrc rc;
    CMPIValueState state = CMPI_badValue; // of a CMPIData answered in this case
    CMPIType type = CMPI_null;
};

using ScopeId = std::uint64_t;
constexpr ScopeId kOwnedByProvider = 0;

class Registry {
  public:
    // Shells outlive what stands beside them by far. They have memory of their own: among the rest they would keep a
    // provider's larger blocks from being used again.
    template <class S> std::shared_ptr<S> newShell() {
        const std::lock_guard<std::mutex> guard(lock_);
        return std::allocate_shared<S>(std::pmr::polymorphic_allocator<S>(&shells_));
    }

    ScopeId newScope();
    void endScope(ScopeId scope); // frees what is left in it

    // shell: the object's CMPI face is its first member. lent: an argument of a call, which the provider must not end.
    void add(std::shared_ptr<void> shell, std::shared_ptr<Body> body, ScopeId scope, bool lent);
    // The body behind a pointer; notes a misuse and throws Refusal when it is no live object of that kind.
    std::shared_ptr<Body> use(const void *object, Kind kind, const char *slot);
    void release(const void *object, Kind kind, const char *slot); // as use(); the object is gone afterwards

    LiveObjects live() const;
    void misuse(const std::string &sentence);
    std::vector<std::string> misuses() const;

  private:
    struct Entry {
        std::shared_ptr<void> shell;
        std::shared_ptr<Body> body;
        ScopeId scope;
        bool lent;
    };
    Entry &find(const void *object, Kind kind, const char *slot); // lock held
    void misuseLocked(const std::string &sentence);
    void bury(const void *object); // lock held

    mutable std::mutex lock_;
    // Before what holds them. The synchronized kind would keep a part for each thread, which an ending one gives back
    // when the registry may be gone.
    std::pmr::unsynchronized_pool_resource shells_;
    ScopeId lastScope_ = kOwnedByProvider;
    std::unordered_map<const void *, Entry> live_;
    const void *lastUsed_ = nullptr; // by use(), if it is live still
    std::shared_ptr<Body> lastBody_;
    std::unordered_map<ScopeId, std::unordered_set<const void *>> scopes_;
    std::pmr::unordered_set<const void *> dead_{&shells_}; // in quarantine
    std::deque<std::shared_ptr<void>> quarantine_;
    long counts_[kKindCount] = {};
    std::vector<std::string> misuses_;
};

// Which call of which service is to fail.
class FailPlan {
  public:
    long set(const std::string &service, long n); // returns the calls counted since the last setting
    void count(const char *slot);                 // throws Refusal for the call that is to fail

  private:
    std::atomic<bool> armed_{false};
    std::mutex lock_;
    std::string service_;
    long failing_ = 0, counted_ = 0;
};

const char *nameOf(Kind kind);

} // namespace oxthost

#endif
