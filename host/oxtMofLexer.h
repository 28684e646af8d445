// The words of a schema text, each with its place.
#ifndef OXT_MOF_LEXER_H
#define OXT_MOF_LEXER_H

#include <string>

namespace oxthost {

struct MofToken {
    enum Kind { Word, Number, Text, Mark, End } kind = End;
    std::string text;
    int line = 1, column = 1;
};

class MofLexer {
  public:
    explicit MofLexer(const std::string &text) : text_(text) {}
    MofToken next(); // End for ever after the last
    // Throws std::runtime_error that names the place.
    [[noreturn]] static void fail(const MofToken &at, const std::string &what);

  private:
    char peek(std::size_t ahead = 0) const { return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0'; }
    char take();
    void skipBlanks();
    void takeText(MofToken &token);

    const std::string &text_;
    std::size_t at_ = 0;
    int line_ = 1, column_ = 1;
};

} // namespace oxthost

#endif
