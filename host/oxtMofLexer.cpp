#include "oxtMofLexer.h"

#include <cctype>
#include <stdexcept>

namespace oxthost {
namespace {

bool isWordPart(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}
bool isNumberPart(char c) {
    return isWordPart(c) || c == '.' || c == '+' || c == '-';
}

} // namespace

void MofLexer::fail(const MofToken &at, const std::string &what) {
    throw std::runtime_error("line " + std::to_string(at.line) + ", column " + std::to_string(at.column) + ": " + what);
}

char MofLexer::take() {
    const char c = text_[at_++];
    column_ = c == '\n' ? 1 : column_ + 1;
    line_ += c == '\n' ? 1 : 0;
    return c;
}

void MofLexer::skipBlanks() {
    while (at_ < text_.size()) {
        if (std::isspace(static_cast<unsigned char>(peek())) != 0) {
            take();
        } else if (peek() == '/' && peek(1) == '/') {
            while (at_ < text_.size() && peek() != '\n')
                take();
        } else if (peek() == '/' && peek(1) == '*') {
            const MofToken start = {MofToken::Mark, "/*", line_, column_};
            for (take(), take(); peek() != '*' || peek(1) != '/'; take())
                if (at_ + 1 >= text_.size())
                    fail(start, "comment without an end");
            take();
            take();
        } else {
            return;
        }
    }
}

void MofLexer::takeText(MofToken &token) {
    token.kind = MofToken::Text;
    take();
    while (at_ < text_.size() && peek() != '"' && peek() != '\n') {
        char c = take();
        if (c == '\\' && at_ < text_.size()) {
            static const std::string letters = "btnfr", meant = "\b\t\n\f\r";
            c = take();
            const std::size_t known = letters.find(c);
            c = known != std::string::npos ? meant[known] : c;
        }
        token.text += c;
    }
    if (peek() != '"')
        fail(token, "text without its closing quote");
    take();
}

MofToken MofLexer::next() {
    skipBlanks();
    MofToken token;
    token.line = line_;
    token.column = column_;
    if (at_ >= text_.size())
        return token;
    const char c = peek();
    if (c == '"') {
        takeText(token);
        return token;
    }
    const bool digit = std::isdigit(static_cast<unsigned char>(c)) != 0;
    const bool isSigned = (c == '-' || c == '+') && std::isdigit(static_cast<unsigned char>(peek(1))) != 0;
    token.kind = digit || isSigned ? MofToken::Number : isWordPart(c) ? MofToken::Word : MofToken::Mark;
    token.text = take();
    while (token.kind != MofToken::Mark && (token.kind == MofToken::Word ? isWordPart(peek()) : isNumberPart(peek())))
        token.text += take();
    return token;
}

} // namespace oxthost
