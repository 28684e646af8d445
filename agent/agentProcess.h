// Who is calling: the numbers of the process and the thread, known without a system call per line and right after a
// fork.
//
// The process number lies in a page that the kernel hands to a forked child filled with zeros; the thread number is
// kept per thread. Any thread may call at any time.
#ifndef AGENT_PROCESS_H
#define AGENT_PROCESS_H

namespace agent {

// The process's number.
int currentProcess();

// The calling thread's number, as the kernel and ps -L show it. `process` is what currentProcess returned.
int currentThread(int process);

} // namespace agent

#endif
