#include "frame/FormText.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "frame/Object.h"

EReadError::EReadError(int line, const std::string& message)
    : EFilerError("Line " + std::to_string(line) + ": " + message),
      FLine(line),
      FMessage(message) {}

namespace mw {
namespace {

// Deeper nesting than this is taken for a damaged file rather than run off the stack.
constexpr int kMaxDepth = 200;
// Longest piece of a string on one line, and bytes of binary data per line.
constexpr size_t kStringPiece = 64;
constexpr size_t kBinaryLine = 32;

bool IsIdentStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool IsIdentChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}
bool IsHex(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}
int HexValue(char c) {
    return std::isdigit(static_cast<unsigned char>(c))
               ? c - '0'
               : std::tolower(static_cast<unsigned char>(c)) - 'a' + 10;
}

void AppendUtf8(std::string& out, uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// ---- Lexer

enum class Tok { End, Ident, Integer, Float, String, Binary, Symbol };

struct Token {
    Tok Kind = Tok::End;
    int Line = 1;
    std::string Text;  // identifier, string contents, or the number as written
    int64_t Int = 0;
    double Flt = 0;
    std::vector<uint8_t> Bytes;
};

class Lexer {
public:
    explicit Lexer(std::string_view text) : s(text) {
        if (s.substr(0, 3) == "\xEF\xBB\xBF") pos = 3;
    }

    Token Next() {
        SkipSpace();
        Token t;
        t.Line = line;
        if (pos >= s.size()) return t;
        char c = s[pos];
        if (IsIdentStart(c)) {
            t.Kind = Tok::Ident;
            t.Text = ReadIdent();
        } else if (std::isdigit(static_cast<unsigned char>(c)) || c == '$' || c == '-') {
            ReadNumber(t);
        } else if (c == '\'' || c == '#') {
            t.Kind = Tok::String;
            t.Text = ReadString();
        } else if (c == '{') {
            t.Kind = Tok::Binary;
            t.Bytes = ReadBinary();
        } else if (std::strchr("=:()[]<>,", c)) {
            t.Kind = Tok::Symbol;
            t.Text = std::string(1, c);
            ++pos;
        } else {
            auto u = static_cast<unsigned char>(c);
            throw EReadError(line, u >= 32 && u < 127 ? std::string("Invalid character '") + c + "'"
                                                      : "Invalid character #" + std::to_string(u));
        }
        return t;
    }

private:
    std::string_view s;
    size_t pos = 0;
    int line = 1;

    char At(size_t i) const { return i < s.size() ? s[i] : '\0'; }

    void SkipSpace() {
        while (pos < s.size() && std::isspace(static_cast<unsigned char>(s[pos]))) {
            if (s[pos] == '\n') ++line;
            ++pos;
        }
    }

    // Identifiers may be dotted: "Format.Channels", "Child1.Wire".
    std::string ReadIdent() {
        size_t start = pos;
        for (;;) {
            while (IsIdentChar(At(pos)))
                ++pos;
            if (At(pos) == '.' && IsIdentStart(At(pos + 1)))
                ++pos;
            else
                break;
        }
        return std::string(s.substr(start, pos - start));
    }

    [[noreturn]] void BadNumber(size_t start) {
        size_t end = pos;
        while (end < s.size() && (IsIdentChar(s[end]) || s[end] == '.' || s[end] == '-' ||
                                  s[end] == '+' || s[end] == '$'))
            ++end;
        throw EReadError(line,
                         "Invalid number \"" + std::string(s.substr(start, end - start)) + "\"");
    }

    void ReadNumber(Token& t) {
        size_t start = pos;
        bool negative = At(pos) == '-';
        if (negative) ++pos;
        if (negative && IsIdentStart(At(pos))) {
            // Negative infinity is the one float written as a word.
            std::string word = ReadIdent();
            if (!SameText(word, "INF")) BadNumber(start);
            t.Kind = Tok::Float;
            t.Flt = -std::numeric_limits<double>::infinity();
            t.Text = "-INF";
            return;
        }
        if (At(pos) == '$') {
            ++pos;
            size_t digits = pos;
            while (IsHex(At(pos)))
                ++pos;
            if (pos == digits || IsIdentChar(At(pos)) || At(pos) == '.') BadNumber(start);
            uint64_t v = 0;
            auto r = std::from_chars(s.data() + digits, s.data() + pos, v, 16);
            if (r.ec != std::errc()) BadNumber(start);
            t.Kind = Tok::Integer;
            t.Int = negative ? static_cast<int64_t>(0 - v) : static_cast<int64_t>(v);
            t.Text = std::string(s.substr(start, pos - start));
            return;
        }
        size_t digits = pos;
        while (std::isdigit(static_cast<unsigned char>(At(pos))))
            ++pos;
        if (pos == digits) BadNumber(start);
        bool isFloat = false;
        if (At(pos) == '.' && std::isdigit(static_cast<unsigned char>(At(pos + 1)))) {
            isFloat = true;
            ++pos;
            while (std::isdigit(static_cast<unsigned char>(At(pos))))
                ++pos;
        }
        if (At(pos) == 'e' || At(pos) == 'E') {
            size_t e = pos + 1;
            if (At(e) == '+' || At(e) == '-') ++e;
            if (std::isdigit(static_cast<unsigned char>(At(e)))) {
                isFloat = true;
                pos = e;
                while (std::isdigit(static_cast<unsigned char>(At(pos))))
                    ++pos;
            }
        }
        if (IsIdentChar(At(pos)) || At(pos) == '.') BadNumber(start);
        const char* first = s.data() + start;
        const char* last = s.data() + pos;
        t.Text = std::string(first, last);
        if (isFloat) {
            t.Kind = Tok::Float;
            auto r = std::from_chars(first, last, t.Flt);
            if (r.ec != std::errc()) BadNumber(start);
        } else {
            t.Kind = Tok::Integer;
            auto r = std::from_chars(first, last, t.Int);
            if (r.ec != std::errc()) BadNumber(start);
        }
    }

    // 'text' with '' for a quote, #13 codes between pieces, and + joining pieces over lines.
    std::string ReadString() {
        int startLine = line;
        std::string out;
        for (;;) {
            char c = At(pos);
            if (c == '\'') {
                ++pos;
                for (;;) {
                    if (pos >= s.size() || s[pos] == '\n' || s[pos] == '\r')
                        throw EReadError(startLine, "Unterminated string");
                    if (s[pos] == '\'') {
                        if (At(pos + 1) == '\'') {
                            out += '\'';
                            pos += 2;
                            continue;
                        }
                        ++pos;
                        break;
                    }
                    out += s[pos++];
                }
            } else if (c == '#') {
                ++pos;
                uint32_t code = 0;
                size_t digits = pos;
                bool hex = At(pos) == '$';
                if (hex) digits = ++pos;
                while (hex ? IsHex(At(pos)) : std::isdigit(static_cast<unsigned char>(At(pos)))) {
                    code = code * (hex ? 16 : 10) +
                           static_cast<uint32_t>(hex ? HexValue(s[pos]) : s[pos] - '0');
                    if (code > 0x10FFFF) throw EReadError(line, "Invalid character code");
                    ++pos;
                }
                if (pos == digits || (code >= 0xD800 && code <= 0xDFFF))
                    throw EReadError(line, "Invalid character code");
                AppendUtf8(out, code);
            } else {
                // The string may go on after a '+', on this line or the next.
                size_t savePos = pos;
                int saveLine = line;
                SkipSpace();
                if (At(pos) != '+') {
                    pos = savePos;
                    line = saveLine;
                    return out;
                }
                ++pos;
                SkipSpace();
                if (At(pos) != '\'' && At(pos) != '#')
                    throw EReadError(line, "String expected after '+'");
            }
        }
    }

    std::vector<uint8_t> ReadBinary() {
        int startLine = line;
        ++pos;
        std::vector<uint8_t> out;
        for (;;) {
            SkipSpace();
            if (pos >= s.size()) throw EReadError(startLine, "Unterminated binary data");
            if (s[pos] == '}') {
                ++pos;
                return out;
            }
            if (!IsHex(s[pos]) || !IsHex(At(pos + 1)))
                throw EReadError(line, "Invalid binary data");
            out.push_back(static_cast<uint8_t>(HexValue(s[pos]) * 16 + HexValue(s[pos + 1])));
            pos += 2;
        }
    }
};

// ---- Parser

class Parser {
public:
    explicit Parser(std::string_view text) : lx(text) { Advance(); }

    FormObject ParseRoot() {
        if (!IsWord("object")) Expected("'object'");
        FormObject root = ParseObject(0);
        if (t.Kind != Tok::End) Expected("End of file");
        return root;
    }

private:
    Lexer lx;
    Token t;

    void Advance() { t = lx.Next(); }
    bool IsWord(const char* word) const { return t.Kind == Tok::Ident && SameText(t.Text, word); }
    bool IsSymbol(char c) const { return t.Kind == Tok::Symbol && t.Text[0] == c; }

    std::string Describe() const {
        switch (t.Kind) {
            case Tok::End:
                return "end of file";
            case Tok::Ident:
                return "\"" + t.Text + "\"";
            case Tok::Integer:
            case Tok::Float:
                return "number " + t.Text;
            case Tok::String:
                return "a string";
            case Tok::Binary:
                return "binary data";
            case Tok::Symbol:
                return "'" + t.Text + "'";
        }
        return "?";
    }

    [[noreturn]] void Expected(const std::string& what) const {
        throw EReadError(t.Line, what + " expected but " + Describe() + " found");
    }

    void CheckDepth(int depth) const {
        if (depth > kMaxDepth) throw EReadError(t.Line, "Form nested too deeply");
    }

    std::string PlainIdent(const char* what) {
        if (t.Kind != Tok::Ident || t.Text.find('.') != std::string::npos) Expected(what);
        std::string s = t.Text;
        Advance();
        return s;
    }

    FormObject ParseObject(int depth) {
        CheckDepth(depth);
        FormObject obj;
        obj.Line = t.Line;
        Advance();  // 'object'
        std::string first = PlainIdent("Component name");
        if (IsSymbol(':')) {
            Advance();
            obj.Name = first;
            obj.ClassName = PlainIdent("Class name");
        } else {
            obj.ClassName = first;
        }
        for (;;) {
            if (t.Kind == Tok::End)
                throw EReadError(t.Line, "Missing 'end' of object " +
                                             (obj.Name.empty() ? obj.ClassName : obj.Name) +
                                             " begun on line " + std::to_string(obj.Line));
            if (IsWord("end")) {
                Advance();
                return obj;
            }
            if (IsWord("object")) {
                obj.Children.push_back(ParseObject(depth + 1));
                continue;
            }
            if (t.Kind != Tok::Ident) Expected("Property name");
            obj.Properties.push_back(ParseProperty(depth));
        }
    }

    FormProperty ParseProperty(int depth) {
        FormProperty p;
        p.Name = t.Text;
        p.Line = t.Line;
        Advance();
        if (!IsSymbol('=')) Expected("'='");
        Advance();
        p.Value = ParseValue(depth + 1);
        return p;
    }

    FormValue ParseValue(int depth) {
        CheckDepth(depth);
        FormValue v;
        v.Line = t.Line;
        switch (t.Kind) {
            case Tok::Integer:
                v.Type = TValueType::vaInteger;
                v.Integer = t.Int;
                break;
            case Tok::Float:
                v.Type = TValueType::vaFloat;
                v.Float = t.Flt;
                v.Text = std::move(t.Text);
                break;
            case Tok::String:
                v.Type = TValueType::vaString;
                v.Text = std::move(t.Text);
                break;
            case Tok::Binary:
                v.Type = TValueType::vaBinary;
                v.Bytes = std::move(t.Bytes);
                break;
            case Tok::Ident:
                if (SameText(t.Text, "True"))
                    v.Type = TValueType::vaTrue;
                else if (SameText(t.Text, "False"))
                    v.Type = TValueType::vaFalse;
                else if (SameText(t.Text, "nil"))
                    v.Type = TValueType::vaNil;
                else
                    v.Type = TValueType::vaIdent;
                v.Text = std::move(t.Text);
                break;
            case Tok::Symbol:
                if (IsSymbol('[')) return ParseSet(std::move(v));
                if (IsSymbol('(')) return ParseList(std::move(v), depth);
                if (IsSymbol('<')) return ParseCollection(std::move(v), depth);
                Expected("Value");
            case Tok::End:
                Expected("Value");
        }
        Advance();
        return v;
    }

    FormValue ParseSet(FormValue v) {
        v.Type = TValueType::vaSet;
        Advance();
        if (IsSymbol(']')) {
            Advance();
            return v;
        }
        for (;;) {
            if (t.Kind != Tok::Ident && t.Kind != Tok::Integer) Expected("Set element");
            v.Elements.push_back(t.Text);
            Advance();
            if (IsSymbol(']')) {
                Advance();
                return v;
            }
            if (!IsSymbol(',')) Expected("',' or ']'");
            Advance();
        }
    }

    FormValue ParseList(FormValue v, int depth) {
        v.Type = TValueType::vaList;
        Advance();
        while (!IsSymbol(')')) {
            if (t.Kind == Tok::End)
                throw EReadError(t.Line,
                                 "Missing ')' of the list begun on line " + std::to_string(v.Line));
            v.List.push_back(ParseValue(depth + 1));
        }
        Advance();
        return v;
    }

    FormValue ParseCollection(FormValue v, int depth) {
        v.Type = TValueType::vaCollection;
        Advance();
        while (!IsSymbol('>')) {
            if (t.Kind == Tok::End)
                throw EReadError(t.Line, "Missing '>' of the collection begun on line " +
                                             std::to_string(v.Line));
            if (!IsWord("item")) Expected("'item' or '>'");
            FormItem item;
            item.Line = t.Line;
            Advance();
            while (!IsWord("end")) {
                if (t.Kind == Tok::End)
                    throw EReadError(t.Line, "Missing 'end' of the item begun on line " +
                                                 std::to_string(item.Line));
                if (t.Kind != Tok::Ident) Expected("Property name");
                item.Properties.push_back(ParseProperty(depth));
            }
            Advance();
            v.Items.push_back(std::move(item));
        }
        Advance();
        return v;
    }
};

// ---- Formatter

std::string Indent(int n) {
    return std::string(static_cast<size_t>(n), ' ');
}

template <class F>
std::string ShortestText(F d) {
    if (std::isnan(d)) return "NAN";
    if (std::isinf(d)) return d < 0 ? "-INF" : "INF";
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, d);
    std::string s(buf, r.ptr);
    if (s.find_first_of(".e") == std::string::npos) s += ".0";
    return s;
}

// The pieces of a string as written: quoted runs and #codes, cut into pieces of at most
// kStringPiece characters, never inside a UTF-8 sequence.
std::vector<std::string> StringPieces(const std::string& text) {
    std::vector<std::string> pieces;
    std::string cur;
    bool quoted = false;
    for (char ch : text) {
        auto u = static_cast<unsigned char>(ch);
        bool continuation = (u & 0xC0) == 0x80;
        if (cur.size() >= kStringPiece && !continuation) {
            if (quoted) cur += '\'';
            pieces.push_back(std::move(cur));
            cur.clear();
            quoted = false;
        }
        if (u < 32 || u == 127) {
            if (quoted) cur += '\'';
            quoted = false;
            cur += '#' + std::to_string(u);
        } else {
            if (!quoted) cur += '\'';
            quoted = true;
            cur += ch;
            if (ch == '\'') cur += '\'';
        }
    }
    if (quoted) cur += '\'';
    if (cur.empty()) cur = "''";
    pieces.push_back(std::move(cur));
    return pieces;
}

std::string HexBytes(const uint8_t* p, size_t n) {
    static const char digits[] = "0123456789ABCDEF";
    std::string s;
    s.reserve(n * 2);
    for (size_t i = 0; i < n; ++i) {
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
    return s;
}

void FormatProperties(std::string& out, const std::vector<FormProperty>& props, int indent);

// Appends a value that starts after "Name = " (or at the start of a list line) at `indent`.
void FormatValue(std::string& out, const FormValue& v, int indent) {
    switch (v.Type) {
        case TValueType::vaNull:
            break;
        case TValueType::vaInteger:
            out += std::to_string(v.Integer);
            break;
        case TValueType::vaFloat:
            out += v.Text.empty() ? FloatText(v.Float) : v.Text;
            break;
        case TValueType::vaString: {
            std::vector<std::string> pieces = StringPieces(v.Text);
            for (size_t i = 0; i < pieces.size(); ++i) {
                if (i) out += " +\n" + Indent(indent + 2);
                out += pieces[i];
            }
            break;
        }
        case TValueType::vaIdent:
            out += v.Text;
            break;
        case TValueType::vaFalse:
            out += "False";
            break;
        case TValueType::vaTrue:
            out += "True";
            break;
        case TValueType::vaNil:
            out += "nil";
            break;
        case TValueType::vaSet:
            out += '[';
            for (size_t i = 0; i < v.Elements.size(); ++i) {
                if (i) out += ", ";
                out += v.Elements[i];
            }
            out += ']';
            break;
        case TValueType::vaBinary:
            out += '{';
            if (v.Bytes.size() <= kBinaryLine) {
                out += HexBytes(v.Bytes.data(), v.Bytes.size());
            } else {
                for (size_t i = 0; i < v.Bytes.size(); i += kBinaryLine) {
                    out += '\n' + Indent(indent + 2);
                    out += HexBytes(v.Bytes.data() + i, std::min(kBinaryLine, v.Bytes.size() - i));
                }
            }
            out += '}';
            break;
        case TValueType::vaList:
            out += '(';
            for (const FormValue& e : v.List) {
                out += '\n' + Indent(indent + 2);
                FormatValue(out, e, indent + 2);
            }
            out += ')';
            break;
        case TValueType::vaCollection:
            out += '<';
            for (const FormItem& item : v.Items) {
                out += '\n' + Indent(indent + 2) + "item\n";
                FormatProperties(out, item.Properties, indent + 4);
                out += Indent(indent + 2) + "end";
            }
            out += '>';
            break;
    }
}

void FormatProperties(std::string& out, const std::vector<FormProperty>& props, int indent) {
    for (const FormProperty& p : props) {
        out += Indent(indent) + p.Name + " = ";
        FormatValue(out, p.Value, indent);
        out += '\n';
    }
}

void FormatObject(std::string& out, const FormObject& obj, int indent) {
    out += Indent(indent) + "object ";
    out += obj.Name.empty() ? obj.ClassName : obj.Name + ": " + obj.ClassName;
    out += '\n';
    FormatProperties(out, obj.Properties, indent + 2);
    for (const FormObject& child : obj.Children)
        FormatObject(out, child, indent + 2);
    out += Indent(indent) + "end\n";
}

}  // namespace

FormObject ParseForm(std::string_view text) {
    return Parser(text).ParseRoot();
}

std::string FloatText(double value) {
    return ShortestText(value);
}
std::string SingleText(float value) {
    return ShortestText(value);
}

std::string FormatForm(const FormObject& form) {
    std::string out;
    FormatObject(out, form, 0);
    return out;
}

}  // namespace mw
