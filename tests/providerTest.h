// The whole provider behind the in-process host, over a replaced system: what the provider's test programs share.
#ifndef OXT_PROVIDER_TEST_H
#define OXT_PROVIDER_TEST_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "agentDirectory.h"
#include "fakeSystem.h"
#include "oxtHost.h"

// What showStatus makes of a success: of a request, and of a method of the thread.
constexpr char kOk[] = "0 ''", kDone[] = "0 '' returned 0:u32";
constexpr char kConfig[] = "OXT_FileSystemConfig";
constexpr char kTotal[] = "OXT_FileSystemTotalNumber";
constexpr char kFs[] = "OXT_FileSystem";
constexpr char kThread[] = "OXT_FileSystemThread";

// An argument or a key of a request.
oxthost::Value text(const std::string &value);
oxthost::Value number(CMPIType type, long long value);

// What a test compares, and a golden file holds: `Name='text'`, `Name=5:u16`, one after the other.
std::string show(const oxthost::Value &value);
std::string show(const std::vector<oxthost::NamedValue> &values);
// "Class.keys" and the properties of each instance, a line each.
std::string showInstances(const oxthost::Reply &reply);
// "code 'message'", and what a method returned.
std::string showStatus(const oxthost::Reply &reply);

class ProviderTest : public testing::Test {
  protected:
    void SetUp() override;
    // Ends the provider as a host does when it terminates, and finds nothing left of it.
    void TearDown() override;

    void load(oxthost::ServiceMode mode = oxthost::ServiceMode::off(),
              oxthost::Flavour flavour = oxthost::Flavour::Sfcb);
    void unload(); // as a host that crashes: no clean-up

    void mountMachine() { system.describe("everyKind.toml"); }

    // A request, after which the provider holds nothing of the host's and has broken none of its rules.
    oxthost::Reply enumerate(const std::string &cls, oxthost::Host::Filter filter = nullptr);
    oxthost::Reply get(const std::string &cls, const std::vector<oxthost::NamedValue> &keys = {},
                       oxthost::Host::Filter filter = nullptr);
    oxthost::Reply call(const std::string &cls, const std::string &method,
                        const std::vector<oxthost::NamedValue> &args = {});
    oxthost::Reply start() { return call(kThread, "StartMonitoringThread"); }
    oxthost::Reply stop() { return call(kThread, "StopMonitoringThread"); }
    oxthost::Reply cleanUp(bool terminating) { return checked(host->cleanupInstance(terminating)); }
    oxthost::Reply checked(oxthost::Reply reply);

    // The property of the instance with this key, as show() has it.
    std::string property(const std::string &index, const std::string &name);
    // A number of the save file: little-endian, from the start of the file or of a record of OXT_FileSystem.
    static long long saved(std::size_t offset, std::size_t width);
    static long long savedOf(std::size_t position, std::size_t offset, std::size_t width);
    // A save file without file systems, with this monitoring cycle.
    static void saveCycle(unsigned seconds);

    // Two full passes of the watch thread from now on: the second one began after the call.
    void waitForPasses();
    // The alerts since the last call: "severity event strings...".
    std::vector<std::string> alerts();

    bool startedThread = false; // the provider then holds the thread's context
    FakeSystem system;
    std::unique_ptr<oxthost::Host> host;

  private:
    std::size_t alertsSeen_ = 0;
};

#endif
