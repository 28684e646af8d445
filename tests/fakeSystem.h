// The operating system as the provider sees it, replaced at link time: mount table, driver list, device nodes, free
// space, shared-memory calls, waits and the system log. What no fixture names goes to the real system.
//
// For a test program that links the rooms, and for one that loads the provider's library: link fakeSystem.cpp into the
// program and export its symbols (ENABLE_EXPORTS). Everything here may change while other threads run; nothing is
// replaced before the first FakeSystem lives and after it is gone.
#ifndef OXT_FAKE_SYSTEM_H
#define OXT_FAKE_SYSTEM_H

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

// What statfs(2) says of a mount point. The defaults are an empty file system of 1 KiB blocks.
struct FakeVolume {
    long type = 0xEF53; // ext2, ext3 and ext4
    long blockSize = 1024;
    unsigned long blocks = 0;
    unsigned long available = 0; // f_bavail; f_bfree is one MiB more
    long nameLength = 255;
    int error = 0;                // not 0: statfs fails with it
    std::function<void()> during; // runs inside each statfs, without any lock held: a delay, or another client
};

enum class Call { Setmntent, Fopen, Stat, Statfs, Shmget, Shmat, Shmdt, Shmctl, Usleep, Sleep, Count };

// One at a time. Its end removes the segments that were made in its life.
class FakeSystem {
  public:
    FakeSystem();
    ~FakeSystem();
    FakeSystem(const FakeSystem &) = delete;
    FakeSystem &operator=(const FakeSystem &) = delete;

    // A file system with its line at the end of the mount table, its block device node (major:1) and its volume.
    void addFileSystem(const std::string &device, unsigned major, const std::string &dir, const std::string &type,
                       unsigned long sizeMiB, unsigned long freeMiB);
    void setFree(const std::string &dir, unsigned long freeMiB);
    void setVolume(const std::string &dir, const FakeVolume &volume);
    FakeVolume volume(const std::string &dir) const;
    void removeFileSystem(const std::string &dir); // the lines that addFileSystem made, and the volume

    // Text in front of the lines of addFileSystem, read as it stands. "/etc/mtab" is empty at first.
    void setMounts(const std::string &text);
    // "/proc/devices"; at first it knows the block drivers 7 loop, 8 sd and 253 device-mapper.
    void setDrivers(const std::string &text);
    void setMountsMissing(bool missing);
    void setDriversMissing(bool missing);
    void addDevice(const std::string &path, mode_t format, unsigned major, unsigned minor); // S_IFBLK or S_IFCHR

    // The nth call from now (1 is the next one; 0 is every call) does nothing and returns the result: -1 with errno, or
    // for shmget an identifier; a call that returns a pointer then returns its failure.
    void inject(Call call, int nth, int error, int result = -1);
    void stopInjecting();
    // fopen of the first path opens the second in its place ("/dev/full").
    void redirectOpen(const std::string &path, const std::string &other);
    // sleep(3) and usleep(3) last so many times shorter.
    void speedUpWaits(unsigned factor);

    int calls(Call call) const;                 // so far
    std::vector<unsigned> sleeps() const;       // the seconds that sleep(3) was called with
    std::vector<int> segments() const;          // made through shmget and not removed
    std::vector<std::string> systemLog() const; // the messages of syslog(3)
};

#endif
