// Saving and loading components as form files, and the registry of classes that a form file
// may create by name.
//
// TWriter writes a component, the components it owns and their published and defined
// properties; a value equal to its default is not written. TReader loads such a file: into a
// new root component created by its class name, or into an existing root, as a form loads
// itself. Either the whole file loads or nothing does: what can be checked without touching
// anything (classes, names, plain values) is checked first; then the file is read straight into
// its components, and a failure anywhere, Loaded() included, frees what the load created and
// takes back what it changed in components that existed, last change first. Errors are
// EReadError naming the line (and the file, for the file helpers).
// References between components are resolved once the whole file is read; then the
// procedures deferred through TReader::DeferUntilLoaded run, then Loaded() of every component
// read, in creation order, and last what TReader::DeferUntilDone put off: the effects on
// components outside the file, which a failed load never reaches.
//
// Reading and writing are main-thread work; the class registry may be used from any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "frame/Classes.h"
#include "frame/FormText.h"

// ---- Class registry

// A class name that the registry doesn't know.
class EClassNotFound : public EFilerError {
public:
    using EFilerError::EFilerError;
};

// Makes a class known to form files by its name (case-insensitive). Registering the same
// class again does nothing; another class of the same name throws EFilerError.
void RegisterClass(TClass cls);
void RegisterClasses(std::initializer_list<TClass> classes);
void UnRegisterClass(TClass cls);
// The registered class of that name, or null.
TClass GetClass(std::string_view name);
// The registered class of that name; throws EClassNotFound.
TClass FindClass(std::string_view name);

// ---- Writer

// Writes one root component as form text. Defined properties receive it as their TFiler and
// write their values through WriteString, WriteListBegin and the rest: each defined property
// writes exactly one value (a list for several).
class TWriter : public TFiler {
public:
    explicit TWriter(TComponent& root);
    ~TWriter() override;

    // The form text of the root; may throw EWriteError.
    std::string WriteRootComponent();
    // The tree of the root, for those who want it without text.
    mw::FormObject WriteRootTree();

    TComponent& Root() const { return FRoot; }
    // The name by which a reference to `component` is written: relative to the root, or to
    // the root's owner for a component beside the root; throws EWriteError for a component
    // without a name.
    std::string ComponentPath(const TComponent& component) const;

    void DefineProperty(const std::string& name, TReaderProc read, TWriterProc write,
                        bool hasData) override;
    void DefineBinaryProperty(const std::string& name, TBinaryReadProc read, TBinaryWriteProc write,
                              bool hasData) override;

    void WriteListBegin();
    void WriteListEnd();
    void WriteString(std::string_view value);
    void WriteInteger(int64_t value);
    void WriteFloat(double value);
    // A single-precision value; it reads back bit-exactly with ReadSingle.
    void WriteSingle(float value);
    void WriteBoolean(bool value);
    void WriteIdent(std::string_view ident);
    void WriteBinary(std::span<const uint8_t> bytes);
    void WriteSet(const std::vector<std::string>& elements);
    // A reference to a component (nil for null), read back with TReader::ReadComponentRef.
    void WriteComponentRef(const TComponent* component);

private:
    friend class TWriterSteps;
    struct TImpl;
    TComponent& FRoot;
    TImpl* FImpl;
};

// ---- Reader

// Loads one form file. The constructor parses the text (EReadError on malformed text); one
// of ReadRootComponent or ReadRootProperties then loads it. Defined properties receive the
// reader as their TFiler and read their value with ReadString, ReadListBegin and the rest;
// a value not of the type asked for, or a value left unread, is an EReadError naming the line.
class TReader : public TFiler {
public:
    explicit TReader(std::string_view text);
    ~TReader() override;

    const mw::FormObject& Form() const { return FForm; }

    // Creates the root by its registered class name, owned by `owner`, and loads it.
    TComponent* ReadRootComponent(TComponent* owner);
    // Loads the file into an existing root whose class (or an ancestor) the file names.
    void ReadRootProperties(TComponent& root);

    // Valid while a file loads (inside DefineProperties and deferred procedures).
    TComponent* Root() const;
    // The component whose properties are being read.
    TComponent* CurrentComponent() const;
    // True when `c` is the root or below it: a component the load may change and take back.
    bool IsInFile(const TComponent* c) const;
    // While loading into a root that existed: `undo` runs if the load fails, last first, to
    // take back an effect of a defined property that the reader cannot see (a connection
    // made, say). Published and defined values themselves are put back by the reader.
    void AddUndo(std::function<void()> undo);
    // Runs `proc` once the load has succeeded, after every Loaded(): for effects on components
    // outside the file, which must not hear of a load that fails. `proc` must not fail; check
    // what can fail beforehand.
    void DeferUntilDone(std::function<void()> proc);
    // Finds a component by the name a writer gives it (TWriter::ComponentPath), or null.
    TComponent* FindComponentPath(std::string_view path) const;
    // Resolves `path` once the whole file is read and passes the component (null for an
    // empty path) to `apply`; a name that is not found is an EReadError naming the line.
    void AddFixup(std::string path, std::function<void(TComponent*)> apply);
    // Runs `proc` once every component of the file exists and references are resolved,
    // before any Loaded(): for data that needs other components, such as connections.
    void DeferUntilLoaded(std::function<void()> proc);
    // The line of the value being read, for messages.
    int Line() const;
    // Throws EReadError naming the line of the value being read.
    [[noreturn]] void Error(const std::string& message) const;

    void DefineProperty(const std::string& name, TReaderProc read, TWriterProc write,
                        bool hasData) override;
    void DefineBinaryProperty(const std::string& name, TBinaryReadProc read, TBinaryWriteProc write,
                              bool hasData) override;

    // The type of the next value; vaNull at the end of a list.
    TValueType NextValue() const;
    bool EndOfList() const;
    void ReadListBegin();
    void ReadListEnd();
    std::string ReadString();
    int32_t ReadInteger();
    int64_t ReadInt64();
    double ReadFloat();
    float ReadSingle();
    bool ReadBoolean();
    // An identifier; True, False and nil read as their names.
    std::string ReadIdent();
    std::vector<uint8_t> ReadBinary();
    std::vector<std::string> ReadSet();
    // Reads a reference written by TWriter::WriteComponentRef and hands the component to
    // `apply` once the whole file is read.
    void ReadComponentRef(std::function<void(TComponent*)> apply);
    // Passes over the next value, whatever it is.
    void SkipValue();

private:
    struct TPass;
    struct TCursor {
        std::span<const mw::FormValue> Values;
        size_t Pos = 0;
        int Line = 0;
    };

    void RunPass(TPass& pass);
    void RunLoaded(TPass& pass);
    void RunFinals(TPass& pass);
    void Rollback(TPass& pass, const std::string& oldName);
    // Reads a value back into `current` while a failed load is taken back.
    void RunNested(const TPass& outer, TComponent* current, const std::function<void()>& read);
    void ReadComponentBody(TComponent& comp, const mw::FormObject& fo);
    void ReadChild(TComponent& parent, const mw::FormObject& fo);
    void ReadProperties(TObject& obj, const std::vector<mw::FormProperty>& props);
    void ReadProperty(TObject& obj, const mw::FormProperty& prop);
    void ReadPublished(TObject& obj, const TPropInfo& info, const mw::FormProperty& prop);
    void SetPublished(TObject& obj, const TPropInfo& info, const TPropValue& value,
                      const mw::FormProperty& prop, bool record);
    void ReadCollection(TCollection& coll, const mw::FormProperty& prop);
    void ReadDefined(TPersistent& obj, const std::string& name, const mw::FormProperty& prop);
    void ReadDefinedValue(const mw::FormProperty& prop, const TReaderProc& read);
    void Finish(TPass& pass);
    TPass& Pass() const;
    const mw::FormValue& Take(TValueType expected, const char* what);
    const mw::FormValue* Peek() const;

    mw::FormObject FForm;
    TPass* FPass = nullptr;
    std::vector<TCursor> FCursors;
    // The defined property being looked for, while DefineProperties runs.
    const std::string* FDefName = nullptr;
    const mw::FormProperty* FDefProp = nullptr;
    const TPersistent* FDefObject = nullptr;
    bool FDefFound = false;
    int FLine = 0;
};

// ---- Helpers

namespace mw {
std::string WriteComponentToText(TComponent& root);
// Creates the root of the text by its class name, owned by `owner` (may be null).
TComponent* ReadComponentFromText(std::string_view text, TComponent* owner);
// Loads the text into an existing root, as a form loads itself.
void ReadComponentPropertiesFromText(std::string_view text, TComponent& root);

// The same for files; a file that cannot be read or written throws EFilerError naming it.
// A file is written beside its final name and then renamed, so a failed write leaves the
// old file.
void WriteComponentToFile(TComponent& root, const std::string& path);
TComponent* ReadComponentFromFile(const std::string& path, TComponent* owner);
void ReadComponentPropertiesFromFile(const std::string& path, TComponent& root);
}  // namespace mw
