#include "oxtHostData.h"
#include "oxtHostObjects.h"
#include "oxtMof.h"
#include "oxtMofLexer.h"

namespace oxthost {
namespace {

using Token = MofToken;
using Lexer = MofLexer;

class Reader {
  public:
    explicit Reader(const std::string &text) : lexer_(text) { advance(); }
    Mof read();

  private:
    Token advance() {
        Token taken = now_;
        now_ = lexer_.next();
        return taken;
    }
    bool isWord(const char *word) const { return now_.kind == Token::Word && sameName(now_.text, word); }
    bool isMark(char mark) const { return now_.kind == Token::Mark && now_.text[0] == mark; }
    bool acceptWord(const char *word);
    bool accept(char mark);
    void expect(char mark, const char *where);
    std::string name(const char *what);
    void skipPragma();
    void skipTo(char mark, const char *what);
    void qualifierDeclaration();
    MofTexts qualifierList();
    std::string value(); // scalar or array
    std::string scalar();
    std::string type(const char *what);
    bool arraySuffix();
    void classDeclaration(MofTexts qualifiers);
    void feature(MofClass &into);
    MofParameter parameter();
    void instanceOf();

    Lexer lexer_;
    Token now_;
    Mof mof_;
};

bool isTrue(const MofTexts &qualifiers, const char *name, bool otherwise) {
    for (const auto &[qualifier, text] : qualifiers)
        if (sameName(qualifier, name))
            return sameName(text, "true");
    return otherwise;
}

bool Reader::acceptWord(const char *word) {
    const bool is = isWord(word);
    if (is)
        advance();
    return is;
}

bool Reader::accept(char mark) {
    const bool is = isMark(mark);
    if (is)
        advance();
    return is;
}

void Reader::expect(char mark, const char *where) {
    if (!accept(mark))
        Lexer::fail(now_, std::string("expected '") + mark + "' " + where);
}

std::string Reader::name(const char *what) {
    if (now_.kind != Token::Word)
        Lexer::fail(now_, std::string("expected the name of ") + what);
    return advance().text;
}

void Reader::skipTo(char mark, const char *what) {
    while (!accept(mark)) {
        if (now_.kind == Token::End)
            Lexer::fail(now_, std::string("expected '") + mark + "' at the end of " + what);
        advance();
    }
}

void Reader::skipPragma() {
    advance();
    if (!acceptWord("pragma"))
        Lexer::fail(now_, "expected pragma after '#'");
    name("a pragma");
    expect('(', "after the pragma's name");
    skipTo(')', "the pragma");
}

void Reader::qualifierDeclaration() {
    mof_.qualifiers.push_back(name("a qualifier"));
    expect(':', "after the qualifier's name");
    type("the qualifier");
    arraySuffix();
    if (accept('='))
        value();
    skipTo(';', "the qualifier declaration");
}

std::string Reader::value() {
    if (accept('{')) {
        std::string all;
        while (!accept('}')) {
            all += (all.empty() ? "" : ", ") + scalar();
            if (!isMark('}'))
                expect(',', "between values");
        }
        return all;
    }
    return scalar();
}

std::string Reader::scalar() {
    if (now_.kind == Token::Mark || now_.kind == Token::End)
        Lexer::fail(now_, "expected a value");
    const Token first = advance();
    std::string text = first.text;
    // Texts that stand side by side are one, as in C.
    while (first.kind == Token::Text && now_.kind == Token::Text)
        text += advance().text;
    return first.kind == Token::Word && sameName(text, "null") ? std::string() : text;
}

MofTexts Reader::qualifierList() {
    MofTexts list;
    if (!accept('['))
        return list;
    do {
        // A text that declares no qualifier relies on those of the object manager, which are not known here.
        if (!mof_.qualifiers.empty() && now_.kind == Token::Word && !contains(mof_.qualifiers, now_.text))
            Lexer::fail(now_, "qualifier " + now_.text + " is not declared");
        const std::string qualifier = name("a qualifier");
        std::string text = "true";
        if (accept('(')) {
            text = value();
            expect(')', "after the qualifier's value");
        } else if (isMark('{')) {
            text = value();
        }
        if (accept(':'))
            while (now_.kind == Token::Word)
                advance(); // its flavors
        list.emplace_back(qualifier, text);
    } while (accept(','));
    expect(']', "after the qualifiers");
    return list;
}

std::string Reader::type(const char *what) {
    const std::string word = name(what);
    return acceptWord("ref") ? word + " ref" : word;
}

bool Reader::arraySuffix() {
    if (!accept('['))
        return false;
    if (now_.kind == Token::Number)
        advance();
    expect(']', "after the array's size");
    return true;
}

MofParameter Reader::parameter() {
    MofParameter p;
    p.qualifiers = qualifierList();
    p.type = type("a parameter's type");
    p.name = name("a parameter");
    p.isArray = arraySuffix();
    p.in = isTrue(p.qualifiers, "In", true);
    p.out = isTrue(p.qualifiers, "Out", false);
    return p;
}

void Reader::feature(MofClass &into) {
    const MofTexts qualifiers = qualifierList();
    const std::string featureType = type("a property's or method's type");
    const Token at = now_;
    const std::string featureName = name("a property or method");
    if (accept('(')) {
        MofMethod method{featureName, featureType, {}, qualifiers};
        while (!accept(')')) {
            method.parameters.push_back(parameter());
            if (!isMark(')'))
                expect(',', "between parameters");
        }
        into.methods.push_back(std::move(method));
    } else {
        for (const MofProperty &other : into.properties)
            if (sameName(other.name, featureName))
                Lexer::fail(at, "property " + featureName + " is declared twice");
        MofProperty property{featureName, featureType, isTrue(qualifiers, "Key", false), arraySuffix(), "", qualifiers};
        if (accept('='))
            property.defaultText = value();
        property.typeCode = typeOfName(property.type, property.isArray);
        into.properties.push_back(std::move(property));
    }
    expect(';', "at the end of a property or method");
}

void Reader::classDeclaration(MofTexts qualifiers) {
    const Token at = now_;
    MofClass declared;
    declared.name = name("a class");
    declared.qualifiers = std::move(qualifiers);
    if (mof_.findClass(declared.name) != nullptr)
        Lexer::fail(at, "class " + declared.name + " is declared twice");
    if (accept(':')) {
        const Token super = now_;
        declared.superClass = name("the superclass");
        if (mof_.findClass(declared.superClass) == nullptr)
            Lexer::fail(super, "superclass " + declared.superClass + " is not declared");
    }
    expect('{', "before the class's body");
    while (!accept('}'))
        feature(declared);
    expect(';', "after the class");
    mof_.classes.push_back(std::move(declared));
}

void Reader::instanceOf() {
    if (!acceptWord("of"))
        Lexer::fail(now_, "expected 'of' after 'instance'");
    const Token at = now_;
    MofInstance instance{name("a class"), {}};
    if (mof_.findClass(instance.className) == nullptr)
        Lexer::fail(at, "class " + instance.className + " is not declared");
    expect('{', "before the instance's values");
    while (!accept('}')) {
        qualifierList();
        const Token property = now_;
        const std::string propertyName = name("a property");
        if (mof_.findProperty(instance.className, propertyName) == nullptr)
            Lexer::fail(property, "class " + instance.className + " has no property " + propertyName);
        expect('=', "after the property's name");
        instance.values.emplace_back(propertyName, value());
        expect(';', "after the value");
    }
    expect(';', "after the instance");
    mof_.instances.push_back(std::move(instance));
}

Mof Reader::read() {
    while (now_.kind != Token::End) {
        if (isMark('#')) {
            skipPragma();
        } else if (acceptWord("qualifier")) {
            qualifierDeclaration();
        } else {
            MofTexts qualifiers = qualifierList();
            if (acceptWord("class"))
                classDeclaration(std::move(qualifiers));
            else if (acceptWord("instance"))
                instanceOf();
            else
                Lexer::fail(now_, "expected a qualifier declaration, a class or an instance");
        }
    }
    return std::move(mof_);
}

} // namespace

Mof readMof(const std::string &text) {
    return Reader(text).read();
}

} // namespace oxthost
