// The agent's two libraries as a test sees them: every trace line and every alert that the rooms hand out, kept. For
// programs that link the rooms; the binding table points here while the object lives. Safe from several threads.
#ifndef OXT_TRACE_LOG_H
#define OXT_TRACE_LOG_H

#include <string>
#include <vector>

struct TraceLine {
    int level;
    std::string function;
    std::string text;
};

struct SentAlert {
    unsigned id;
    int type;
    int method;
    std::string source;
    std::vector<std::string> strings; // the strings counted in the record
    bool closed;                      // the slot behind them is null
};

class TraceLog {
  public:
    TraceLog();
    ~TraceLog();
    TraceLog(const TraceLog &) = delete;
    TraceLog &operator=(const TraceLog &) = delete;

    std::vector<TraceLine> lines() const;
    int countOf(const std::string &text) const; // lines that are exactly this
    bool contains(const std::string &text) const { return countOf(text) > 0; }
    std::vector<std::string> failures() const; // the texts at the failure level
    std::vector<SentAlert> alerts() const;
    std::vector<unsigned> alertIds() const;
    void clear();                  // lines and alerts
    void answerAlerts(int result); // of SendIndication from now on; 0 at first
};

#endif
