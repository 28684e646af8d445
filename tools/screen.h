// What watch shows on a terminal: the table, redrawn in place after each pass and at each key, and the last lines that
// there were to say below it.
#ifndef OXT_TOOL_SCREEN_H
#define OXT_TOOL_SCREEN_H

#include <termios.h>

#include <deque>
#include <string>
#include <vector>

#include "table.h"
#include "view.h"

namespace oxttool {

// The text of a screen of so many rows, and what stands on it. Where the file systems do not all fit, the worst ones
// stand first and `first` is the row that the table begins with. Pure.
struct ScreenState {
    std::string sort; // as in Look; empty: in the order of the mount table while all of it fits
    std::size_t first = 0;
    std::deque<std::string> recent; // lines, the newest last
};
std::string screenOf(const View &view, const Look &look, const std::string &now, std::size_t rows, ScreenState &state);

class Screen {
  public:
    explicit Screen(const Look &look); // takes keys as they are pressed, where the standard input is a terminal
    ~Screen();
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    void show(const View &view);
    void say(const std::string &line); // printable
    // True when keys can come from the standard input.
    bool takesKeys() const { return takesKeys_; }
    // Reads the keys that were pressed; false after q.
    bool press();

  private:
    void draw();

    Look look_;
    bool takesKeys_ = false;
    termios before_ = {};
    ScreenState state_;
    View view_;
    bool shown_ = false;
};

} // namespace oxttool

#endif
