// Every path of the agent and of the system, once. OXT_AGENT_DIR is a build setting and ends in a slash.
#ifndef OXT_PATHS_H
#define OXT_PATHS_H

#ifndef OXT_AGENT_DIR
#define OXT_AGENT_DIR "/opt/qelto/tavrin_sa/"
#endif

inline constexpr char OXT_PATH_SAVE[] = OXT_AGENT_DIR "data/oxtfssave.dat";
inline constexpr char OXT_PATH_SHMKEY[] = OXT_AGENT_DIR "work/oxtfsshm.key"; // the class digit is appended
constexpr int OXT_SHMKEY_PROJECT = 69; // ftok(3)'s second argument beside it, known to readers of the segments
inline constexpr char OXT_PATH_MTAB[] = "/etc/mtab";
inline constexpr char OXT_PATH_DEVICES[] = "/proc/devices";

inline constexpr char OXT_LOG_FILE[] = "oxtfs.log"; // a name inside the trace library's own directory

#endif
