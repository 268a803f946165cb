// The text form format: the tree of one form file and its conversion from and to text.
//
// A form file describes one root component: `object Name: TClass`, its properties
// `Name = value` (nested persistents by dotted names), its owned components as nested
// `object ... end` blocks, then `end`. ParseForm turns text into the tree and throws
// EReadError naming the line on malformed text; FormatForm turns a tree into text, two spaces
// of indentation per level. TReader and TWriter stand between this tree and live components.
// Both functions are pure and may run on any thread.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// The kinds of value a form file holds; TReader::NextValue reports them.
enum class TValueType {
    vaNull,  // no value: the end of a list
    vaList,
    vaInteger,
    vaFloat,
    vaString,
    vaIdent,
    vaFalse,
    vaTrue,
    vaBinary,
    vaSet,
    vaNil,
    vaCollection,
};

// Failures of reading or writing form files.
class EFilerError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A form file that cannot be loaded. The message starts with the line it is about:
// `Line 12: Property "Foo" does not exist in TQAAudioOut`.
class EReadError : public EFilerError {
public:
    EReadError(int line, const std::string& message);
    int Line() const { return FLine; }
    // The message without the line.
    const std::string& Message() const { return FMessage; }

private:
    int FLine;
    std::string FMessage;
};

// A component that cannot be written, such as a reference to a component without a name.
class EWriteError : public EFilerError {
public:
    using EFilerError::EFilerError;
};

namespace mw {

struct FormItem;

// One value. Only the members of its type are meaningful; Line is 0 for values not read from
// text.
struct FormValue {
    TValueType Type = TValueType::vaNull;
    int Line = 0;
    int64_t Integer = 0;
    double Float = 0;
    std::string Text;  // string; identifier (dotted for references); a float as written
    std::vector<std::string> Elements;  // set elements as written
    std::vector<uint8_t> Bytes;         // binary
    std::vector<FormValue> List;        // list
    std::vector<FormItem> Items;        // collection
};

struct FormProperty {
    std::string Name;  // may be dotted: "Format.Channels"
    int Line = 0;
    FormValue Value;
};

struct FormItem {
    int Line = 0;
    std::vector<FormProperty> Properties;
};

struct FormObject {
    std::string Name;  // empty for an unnamed component
    std::string ClassName;
    int Line = 0;
    std::vector<FormProperty> Properties;
    std::vector<FormObject> Children;
};

// Parses a whole form file; throws EReadError naming the line of the first fault.
FormObject ParseForm(std::string_view text);
// Formats a tree as form text; the result ends with a line feed.
std::string FormatForm(const FormObject& form);
// The shortest text that reads back as exactly this value, with a '.' or an exponent so that
// it reads as a float; "INF", "-INF" and "NAN" for the values that have no digits.
std::string FloatText(double value);
std::string SingleText(float value);

}  // namespace mw
