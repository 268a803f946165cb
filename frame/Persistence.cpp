#include "frame/Persistence.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <mutex>
#include <sstream>
#include <unordered_set>

using mw::SameText;

namespace {

std::string Lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

std::vector<std::string> SplitDots(std::string_view s) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t dot = s.find('.', start);
        parts.emplace_back(s.substr(start, dot - start));
        if (dot == std::string_view::npos) return parts;
        start = dot + 1;
    }
}

const char* TypeName(TValueType t) {
    switch (t) {
        case TValueType::vaNull:
            return "end of list";
        case TValueType::vaList:
            return "a list";
        case TValueType::vaInteger:
            return "an integer";
        case TValueType::vaFloat:
            return "a float";
        case TValueType::vaString:
            return "a string";
        case TValueType::vaIdent:
            return "an identifier";
        case TValueType::vaFalse:
        case TValueType::vaTrue:
            return "a boolean";
        case TValueType::vaBinary:
            return "binary data";
        case TValueType::vaSet:
            return "a set";
        case TValueType::vaNil:
            return "nil";
        case TValueType::vaCollection:
            return "a collection";
    }
    return "?";
}

// Turns any failure of `f` other than a read error into one naming `line`.
template <class F>
void Guarded(int line, const std::string& context, F&& f) {
    try {
        f();
    } catch (const EReadError&) {
        throw;
    } catch (const std::exception& e) {
        throw EReadError(line, context + e.what());
    }
}

bool IsNonFiniteWord(const mw::FormValue& v) {
    return v.Type == TValueType::vaIdent && (SameText(v.Text, "INF") || SameText(v.Text, "NAN"));
}

double NonFinite(const mw::FormValue& v) {
    return SameText(v.Text, "INF") ? std::numeric_limits<double>::infinity()
                                   : std::numeric_limits<double>::quiet_NaN();
}

// ---- Registry

struct TRegistry {
    std::mutex Lock;
    std::map<std::string, TClass> Classes;  // by lower-case name
};

TRegistry& Registry() {
    static TRegistry r;
    return r;
}

// Marks a component as being written for the duration of a scope.
class TWritingScope {
public:
    explicit TWritingScope(TComponent& c) : FComponent(c) { c.SetWriting(true); }
    ~TWritingScope() { FComponent.SetWriting(false); }
    TWritingScope(const TWritingScope&) = delete;
    TWritingScope& operator=(const TWritingScope&) = delete;

private:
    TComponent& FComponent;
};

// The owners from `c` up to (not including) `base`; empty when `c` is not below `base`.
std::vector<const TComponent*> ChainBelow(const TComponent& c, const TComponent* base) {
    std::vector<const TComponent*> chain;
    const TComponent* p = &c;
    for (; p && p != base; p = p->Owner())
        chain.push_back(p);
    if (p != base) chain.clear();
    return chain;
}

TComponent* Walk(TComponent* from, const std::vector<std::string>& segs, size_t first) {
    for (size_t i = first; from && i < segs.size(); ++i)
        from = from->FindComponent(segs[i]);
    return from;
}

}  // namespace

// ---- Class registry

void RegisterClass(TClass cls) {
    if (!cls) throw EFilerError("Cannot register a null class");
    TRegistry& r = Registry();
    std::lock_guard<std::mutex> lock(r.Lock);
    auto [it, inserted] = r.Classes.emplace(Lower(cls->ClassName()), cls);
    if (!inserted && it->second != cls)
        throw EFilerError(std::string("A class named ") + cls->ClassName() +
                          " is already registered");
}

void RegisterClasses(std::initializer_list<TClass> classes) {
    for (TClass c : classes)
        RegisterClass(c);
}

void UnRegisterClass(TClass cls) {
    if (!cls) return;
    TRegistry& r = Registry();
    std::lock_guard<std::mutex> lock(r.Lock);
    auto it = r.Classes.find(Lower(cls->ClassName()));
    if (it != r.Classes.end() && it->second == cls) r.Classes.erase(it);
}

TClass GetClass(std::string_view name) {
    TRegistry& r = Registry();
    std::lock_guard<std::mutex> lock(r.Lock);
    auto it = r.Classes.find(Lower(name));
    return it == r.Classes.end() ? nullptr : it->second;
}

TClass FindClass(std::string_view name) {
    TClass c = GetClass(name);
    if (!c) throw EClassNotFound("Class " + std::string(name) + " not found");
    return c;
}

// ---- TWriter

struct TWriter::TImpl {
    // Where the properties of the object being written go, and the prefix of their names
    // ("Format." inside a nested persistent): what DefineProperty needs.
    std::vector<mw::FormProperty>* Out = nullptr;
    std::string Prefix;
    const TObject* Object = nullptr;
    // Where WriteString and the rest put values: the value of a defined property, then the
    // lists opened inside it.
    std::vector<std::vector<mw::FormValue>*> Targets;

    void Append(mw::FormValue v) {
        if (Targets.empty())
            throw std::logic_error("TWriter: values are written only inside a defined property");
        Targets.back()->push_back(std::move(v));
    }
};

TWriter::TWriter(TComponent& root) : FRoot(root), FImpl(new TImpl) {}

TWriter::~TWriter() {
    delete FImpl;
}

namespace {

mw::FormValue ValueOf(TValueType type) {
    mw::FormValue v;
    v.Type = type;
    return v;
}

mw::FormValue IdentValue(std::string text) {
    mw::FormValue v = ValueOf(TValueType::vaIdent);
    v.Text = std::move(text);
    return v;
}

}  // namespace

// Writing is split into small steps that need the writer; they live here rather than in the
// header.
class TWriterSteps {
public:
    static mw::FormObject Component(TWriter& w, TComponent& c) {
        TWritingScope writing(c);
        mw::FormObject fo;
        fo.Name = c.Name();
        fo.ClassName = c.ClassName();
        Properties(w, c, "", fo.Properties);
        // Components without a name are internal helpers of their owner, made again by it.
        for (int i = 0; i < c.ComponentCount(); ++i)
            if (!c.Components(i)->Name().empty())
                fo.Children.push_back(Component(w, *c.Components(i)));
        return fo;
    }

    static void Properties(TWriter& w, TObject& obj, const std::string& prefix,
                           std::vector<mw::FormProperty>& out) {
        for (const TPropInfo& p : obj.ClassType()->Properties().Items()) {
            if (p.Kind == TPropKind::Object) {
                if (!p.ShouldStore(obj)) continue;
                TObject* sub = std::get<TObject*>(p.Get(obj));
                if (!sub) continue;
                if (auto* coll = dynamic_cast<TCollection*>(sub))
                    out.push_back({prefix + p.Name, 0, Collection(w, *coll)});
                else
                    Properties(w, *sub, prefix + p.Name + ".", out);
            } else if (p.Set && p.ShouldStore(obj)) {
                out.push_back({prefix + p.Name, 0, Published(w, obj, p)});
            }
        }
        auto* pers = dynamic_cast<TPersistent*>(&obj);
        if (!pers) return;
        TWriter::TImpl& im = *w.FImpl;
        auto savedOut = im.Out;
        auto savedPrefix = im.Prefix;
        auto savedObject = im.Object;
        im.Out = &out;
        im.Prefix = prefix;
        im.Object = &obj;
        struct Restore {
            TWriter::TImpl& im;
            decltype(savedOut) o;
            std::string p;
            const TObject* obj;
            ~Restore() {
                im.Out = o;
                im.Prefix = std::move(p);
                im.Object = obj;
            }
        } restore{im, savedOut, savedPrefix, savedObject};
        pers->DefineProperties(w);
    }

    // The value `write` gives for the defined property `name` of `obj`, whatever its default.
    static bool Capture(TWriter& w, const TObject& obj, const std::string& name,
                        const TFiler::TWriterProc& write, mw::FormValue& out) {
        std::vector<mw::FormProperty> props;
        TWriter::TImpl& im = *w.FImpl;
        im.Out = &props;
        im.Prefix.clear();
        im.Object = &obj;
        w.DefineProperty(name, nullptr, write, true);
        im.Out = nullptr;
        im.Object = nullptr;
        if (props.size() != 1) return false;
        out = std::move(props.front().Value);
        return true;
    }

    static mw::FormValue Collection(TWriter& w, TCollection& coll) {
        mw::FormValue v = ValueOf(TValueType::vaCollection);
        for (int i = 0; i < coll.Count(); ++i) {
            mw::FormItem item;
            Properties(w, *coll.GetItem(i), "", item.Properties);
            v.Items.push_back(std::move(item));
        }
        return v;
    }

    static mw::FormValue Published(TWriter& w, const TObject& obj, const TPropInfo& p) {
        TPropValue value = p.Get(obj);
        mw::FormValue v;
        switch (p.Kind) {
            case TPropKind::Integer:
            case TPropKind::Cardinal:
            case TPropKind::Int64:
                v.Type = TValueType::vaInteger;
                v.Integer = std::get<int64_t>(value);
                break;
            case TPropKind::Float:
                v.Type = TValueType::vaFloat;
                v.Float = std::get<double>(value);
                break;
            case TPropKind::Boolean:
                v.Type = std::get<bool>(value) ? TValueType::vaTrue : TValueType::vaFalse;
                break;
            case TPropKind::String:
                v.Type = TValueType::vaString;
                v.Text = std::get<std::string>(value);
                break;
            case TPropKind::Enum: {
                int64_t ord = std::get<int64_t>(value);
                if (ord >= 0 && ord < static_cast<int64_t>(p.Names.size()))
                    return IdentValue(p.Names[ord]);
                v.Type = TValueType::vaInteger;
                v.Integer = ord;
                break;
            }
            case TPropKind::Set: {
                auto mask = static_cast<uint64_t>(std::get<int64_t>(value));
                v.Type = TValueType::vaSet;
                for (int bit = 0; bit < 64; ++bit)
                    if (mask & (uint64_t{1} << bit)) v.Elements.push_back(p.NameOf(bit));
                break;
            }
            case TPropKind::Component: {
                auto* target = std::get<TObject*>(value);
                if (!target) return ValueOf(TValueType::vaNil);
                auto* comp = dynamic_cast<TComponent*>(target);
                if (!comp)
                    throw EWriteError("Property " + p.Name + " of " + obj.ClassName() +
                                      " refers to an object that is not a component");
                return IdentValue(w.ComponentPath(*comp));
            }
            case TPropKind::Object:
                break;
        }
        return v;
    }
};

mw::FormObject TWriter::WriteRootTree() {
    return TWriterSteps::Component(*this, FRoot);
}

std::string TWriter::WriteRootComponent() {
    return mw::FormatForm(WriteRootTree());
}

std::string TWriter::ComponentPath(const TComponent& component) const {
    std::vector<const TComponent*> chain;
    if (&component == &FRoot) {
        chain.push_back(&FRoot);
    } else {
        chain = ChainBelow(component, &FRoot);
        if (chain.empty() && FRoot.Owner() && &component != FRoot.Owner())
            chain = ChainBelow(component, FRoot.Owner());
        if (chain.empty()) chain = ChainBelow(component, nullptr);
    }
    std::string path;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        if ((*it)->Name().empty())
            throw EWriteError(std::string("Cannot write a reference to a ") +
                              component.ClassName() + " without a name");
        if (!path.empty()) path += '.';
        path += (*it)->Name();
    }
    return path;
}

void TWriter::DefineProperty(const std::string& name, TReaderProc, TWriterProc write,
                             bool hasData) {
    if (!hasData || !write) return;
    if (!FImpl->Out) throw std::logic_error("TWriter: DefineProperty outside of writing");
    std::vector<mw::FormValue> values;
    size_t depth = FImpl->Targets.size();
    FImpl->Targets.push_back(&values);
    struct Pop {
        std::vector<std::vector<mw::FormValue>*>& t;
        size_t depth;
        ~Pop() { t.resize(depth); }
    } pop{FImpl->Targets, depth};
    write(*this);
    std::string where = FImpl->Prefix + name + " of " + FImpl->Object->ClassName();
    if (FImpl->Targets.size() != depth + 1)
        throw EWriteError("Property " + where + " left a list open");
    if (values.size() != 1)
        throw EWriteError("Property " + where + " wrote " + std::to_string(values.size()) +
                          " values; a defined property writes one value (a list for several)");
    FImpl->Out->push_back({FImpl->Prefix + name, 0, std::move(values.front())});
}

void TWriter::DefineBinaryProperty(const std::string& name, TBinaryReadProc, TBinaryWriteProc write,
                                   bool hasData) {
    if (!hasData || !write) return;
    if (!FImpl->Out) throw std::logic_error("TWriter: DefineBinaryProperty outside of writing");
    mw::FormValue v = ValueOf(TValueType::vaBinary);
    v.Bytes = write();
    FImpl->Out->push_back({FImpl->Prefix + name, 0, std::move(v)});
}

void TWriter::WriteListBegin() {
    FImpl->Append(ValueOf(TValueType::vaList));
    FImpl->Targets.push_back(&FImpl->Targets.back()->back().List);
}

void TWriter::WriteListEnd() {
    if (FImpl->Targets.size() < 2) throw std::logic_error("TWriter: WriteListEnd without a list");
    FImpl->Targets.pop_back();
}

void TWriter::WriteString(std::string_view value) {
    mw::FormValue v = ValueOf(TValueType::vaString);
    v.Text = value;
    FImpl->Append(std::move(v));
}

void TWriter::WriteInteger(int64_t value) {
    mw::FormValue v = ValueOf(TValueType::vaInteger);
    v.Integer = value;
    FImpl->Append(std::move(v));
}

void TWriter::WriteFloat(double value) {
    mw::FormValue v = ValueOf(TValueType::vaFloat);
    v.Float = value;
    FImpl->Append(std::move(v));
}

// Written as the shortest text of the single itself ("0.7", not the digits of the double
// nearest to it); ReadSingle parses that text as a single again.
void TWriter::WriteSingle(float value) {
    mw::FormValue v = ValueOf(TValueType::vaFloat);
    v.Float = value;
    v.Text = mw::SingleText(value);
    FImpl->Append(std::move(v));
}

void TWriter::WriteBoolean(bool value) {
    FImpl->Append(ValueOf(value ? TValueType::vaTrue : TValueType::vaFalse));
}

void TWriter::WriteIdent(std::string_view ident) {
    if (SameText(ident, "True"))
        WriteBoolean(true);
    else if (SameText(ident, "False"))
        WriteBoolean(false);
    else if (SameText(ident, "nil"))
        FImpl->Append(ValueOf(TValueType::vaNil));
    else
        FImpl->Append(IdentValue(std::string(ident)));
}

void TWriter::WriteBinary(std::span<const uint8_t> bytes) {
    mw::FormValue v = ValueOf(TValueType::vaBinary);
    v.Bytes.assign(bytes.begin(), bytes.end());
    FImpl->Append(std::move(v));
}

void TWriter::WriteSet(const std::vector<std::string>& elements) {
    mw::FormValue v = ValueOf(TValueType::vaSet);
    v.Elements = elements;
    FImpl->Append(std::move(v));
}

void TWriter::WriteComponentRef(const TComponent* component) {
    if (!component)
        FImpl->Append(ValueOf(TValueType::vaNil));
    else
        FImpl->Append(IdentValue(ComponentPath(*component)));
}

// ---- TReader

// One load of the file into a root, or a nested reading that puts back a value while a failed
// load is taken back.
struct TReader::TPass {
    struct TFixup {
        std::string Path;
        int Line;
        std::function<void(TComponent*)> Apply;
    };
    struct TDeferred {
        int Line;
        std::function<void()> Proc;
    };
    TComponent* Root = nullptr;
    TComponent* LookupOwner = nullptr;  // where references beside the root are found
    TComponent* Current = nullptr;
    // Loading into a root that existed: what the load changes in components that existed is
    // recorded in Undos, so that a failed load can take it back.
    bool Undoable = false;
    int CollectionDepth = 0;  // > 0 while the items of a collection are read
    // Every component read, in creation order, with the line of its object.
    std::vector<std::pair<TComponent*, int>> Loaded;
    std::unordered_set<const TComponent*> New;  // created by this pass, or by its constructors
    std::vector<TComponent*> Created;           // created under a component that existed
    std::vector<TFixup> Fixups;
    std::vector<TDeferred> Deferreds;
    std::vector<std::function<void()>> Undos;
    std::vector<std::function<void()>> Finals;

    TComponent* Resolve(std::string_view path) const {
        std::vector<std::string> segs = SplitDots(path);
        if (TComponent* c = Walk(Root, segs, 0)) return c;
        if (SameText(segs[0], Root->Name()))
            if (TComponent* c = Walk(Root, segs, 1)) return c;
        if (LookupOwner) {
            if (TComponent* c = Walk(LookupOwner, segs, 0)) return c;
            if (SameText(segs[0], LookupOwner->Name()))
                if (TComponent* c = Walk(LookupOwner, segs, 1)) return c;
        }
        return nullptr;
    }
    // True when a change to the object being read now is to be recorded for an undo: it
    // belongs to a component that existed before the load, outside the items of a collection
    // (a collection is put back whole).
    bool Records() const { return Undoable && CollectionDepth == 0 && !New.count(Current); }
};

TReader::TReader(std::string_view text) : FForm(mw::ParseForm(text)) {}

TReader::~TReader() = default;

TReader::TPass& TReader::Pass() const {
    if (!FPass) throw std::logic_error("TReader: no form is being loaded");
    return *FPass;
}

namespace {

TComponent* CreateComponent(TClass cls, TComponent* owner, int line) {
    TObject* obj = nullptr;
    Guarded(line, std::string("Cannot create ") + cls->ClassName() + ": ",
            [&] { obj = cls->Create(owner); });
    auto* comp = dynamic_cast<TComponent*>(obj);
    if (!comp) {
        delete obj;
        throw EReadError(line, std::string("Class ") + cls->ClassName() + " cannot be created");
    }
    return comp;
}

TClass ComponentClass(const std::string& name, int line) {
    TClass cls = GetClass(name);
    if (!cls) throw EReadError(line, "Class " + name + " not found");
    if (!cls->InheritsFrom(TComponent::StaticClass()))
        throw EReadError(line, "Class " + name + " is not a component");
    return cls;
}

void SetComponentName(TComponent& c, const std::string& name, int line) {
    if (!name.empty()) Guarded(line, "", [&] { c.SetName(name); });
}

void CheckClassOf(const TComponent& c, const mw::FormObject& fo) {
    if (!SameText(c.ClassName(), fo.ClassName))
        throw EReadError(
            fo.Line, "Component " + fo.Name + " is a " + c.ClassName() + ", not a " + fo.ClassName);
}

// The value of a plain published property (not an object, not a component reference) as the
// file gives it; throws EReadError naming the line when it doesn't fit the property.
TPropValue PublishedValue(const TPropInfo& info, const mw::FormProperty& prop) {
    const mw::FormValue& v = prop.Value;
    auto wrongType = [&](const char* expected) {
        return EReadError(v.Line, "Invalid value for property \"" + prop.Name + "\": " + expected +
                                      " expected but " + TypeName(v.Type) + " found");
    };
    auto badElement = [&](const std::string& element) {
        return EReadError(v.Line,
                          "Invalid value \"" + element + "\" for property \"" + prop.Name + "\"");
    };
    switch (info.Kind) {
        case TPropKind::Integer:
        case TPropKind::Cardinal:
            if (v.Type != TValueType::vaInteger) throw wrongType("an integer");
            if (v.Integer < info.MinValue || v.Integer > info.MaxValue)
                throw EReadError(v.Line, "Value " + std::to_string(v.Integer) +
                                             " out of range for property \"" + prop.Name + "\" (" +
                                             std::to_string(info.MinValue) + " to " +
                                             std::to_string(info.MaxValue) + ")");
            return v.Integer;
        case TPropKind::Int64:
            if (v.Type != TValueType::vaInteger) throw wrongType("an integer");
            return v.Integer;
        case TPropKind::Float:
            if (v.Type == TValueType::vaFloat) return v.Float;
            if (v.Type == TValueType::vaInteger) return static_cast<double>(v.Integer);
            if (IsNonFiniteWord(v)) return NonFinite(v);
            throw wrongType("a number");
        case TPropKind::Boolean:
            if (v.Type != TValueType::vaTrue && v.Type != TValueType::vaFalse)
                throw wrongType("True or False");
            return v.Type == TValueType::vaTrue;
        case TPropKind::String:
            if (v.Type != TValueType::vaString) throw wrongType("a string");
            return v.Text;
        case TPropKind::Enum:
            // Only the values the enumeration names: an ordinal past them is no value of it.
            if (v.Type == TValueType::vaInteger) {
                if (v.Integer < 0 || v.Integer >= static_cast<int64_t>(info.Names.size()))
                    throw badElement(std::to_string(v.Integer));
                return v.Integer;
            }
            if (v.Type == TValueType::vaIdent) {
                int64_t ord = info.OrdinalOf(v.Text);
                if (ord < 0) throw badElement(v.Text);
                return ord;
            }
            throw wrongType("an identifier");
        case TPropKind::Set: {
            if (v.Type != TValueType::vaSet) throw wrongType("a set");
            uint64_t mask = 0;
            for (const std::string& e : v.Elements) {
                int64_t bit = -1;
                if (!e.empty() && (std::isdigit(static_cast<unsigned char>(e[0])) || e[0] == '-'))
                    bit = std::atoll(e.c_str());
                else
                    bit = info.OrdinalOf(e);
                if (bit < 0 || bit > 63) throw badElement(e);
                mask |= uint64_t{1} << bit;
            }
            return static_cast<int64_t>(mask);
        }
        case TPropKind::Object:
        case TPropKind::Component:
            break;
    }
    throw std::logic_error("PublishedValue: not a plain property");
}

// Checks what can be checked of a file before anything is touched: the classes of components
// to create, duplicate names, and the values of plain published properties. `live` is the
// component the object will be read into when it exists already, else null.
void CheckTree(const mw::FormObject& fo, const TComponent* live, TClass cls) {
    for (const mw::FormProperty& prop : fo.Properties) {
        if (prop.Name.find('.') != std::string::npos) continue;
        const TPropInfo* info = cls->Properties().Find(prop.Name);
        if (!info || !info->Set || info->Kind == TPropKind::Object ||
            info->Kind == TPropKind::Component)
            continue;
        PublishedValue(*info, prop);
    }
    for (size_t i = 0; i < fo.Children.size(); ++i) {
        const mw::FormObject& child = fo.Children[i];
        for (size_t j = 0; j < i && !child.Name.empty(); ++j)
            if (SameText(fo.Children[j].Name, child.Name))
                throw EReadError(child.Line, "Duplicate component name " + child.Name);
        const TComponent* twin =
            live && !child.Name.empty() ? live->FindComponent(child.Name) : nullptr;
        if (twin) {
            CheckClassOf(*twin, child);
            CheckTree(child, twin, twin->ClassType());
            continue;
        }
        // Under a component still to be made, a child may come from its constructor: only a
        // registered class can be checked there.
        if (!live && !GetClass(child.ClassName)) continue;
        CheckTree(child, nullptr, ComponentClass(child.ClassName, child.Line));
    }
}

}  // namespace

TComponent* TReader::ReadRootComponent(TComponent* owner) {
    TClass cls = ComponentClass(FForm.ClassName, FForm.Line);
    CheckTree(FForm, nullptr, cls);
    TOwned<TComponent> root(CreateComponent(cls, owner, FForm.Line));
    TPass pass;
    pass.Root = root.get();
    pass.LookupOwner = owner;
    pass.New.insert(root.get());
    // Loading from before AfterConstruction on: a component tells a load from a creation in
    // code by it, and starts its work in Loaded() instead.
    root->SetLoading(true);
    pass.Loaded.emplace_back(root.get(), FForm.Line);
    Guarded(FForm.Line, "", [&] { root->AfterConstruction(); });
    SetComponentName(*root, FForm.Name, FForm.Line);
    RunPass(pass);
    RunLoaded(pass);
    // Nothing fails from here on: only now do components outside the file hear of it.
    TComponent* result = root.release();
    RunFinals(pass);
    return result;
}

void TReader::ReadRootProperties(TComponent& root) {
    bool classFits = false;
    for (TClass c = root.ClassType(); c; c = c->ClassParent())
        classFits = classFits || SameText(c->ClassName(), FForm.ClassName);
    if (!classFits)
        throw EReadError(FForm.Line,
                         "The form holds a " + FForm.ClassName + ", not a " + root.ClassName());
    if (!FForm.Name.empty() && root.Owner()) {
        TComponent* other = root.Owner()->FindComponent(FForm.Name);
        if (other && other != &root)
            throw EReadError(FForm.Line, "A component named " + FForm.Name + " already exists");
    }
    CheckTree(FForm, &root, root.ClassType());

    // The file goes straight into the root; what it changes in components that existed is
    // recorded, and a failure takes it all back.
    TPass pass;
    pass.Root = &root;
    pass.LookupOwner = root.Owner();
    pass.Undoable = true;
    const std::string oldName = root.Name();
    root.SetLoading(true);
    pass.Loaded.emplace_back(&root, FForm.Line);
    try {
        SetComponentName(root, FForm.Name, FForm.Line);
        RunPass(pass);
        RunLoaded(pass);
    } catch (...) {
        Rollback(pass, oldName);
        throw;
    }
    RunFinals(pass);
}

void TReader::RunPass(TPass& pass) {
    TPass* saved = FPass;
    FPass = &pass;
    struct Reset {
        TReader& r;
        TPass* saved;
        ~Reset() {
            r.FPass = saved;
            r.FCursors.clear();
            r.FDefName = nullptr;
            r.FDefProp = nullptr;
        }
    } reset{*this, saved};
    ReadComponentBody(*pass.Root, FForm);
    Finish(pass);
}

void TReader::RunLoaded(TPass& pass) {
    for (auto [c, line] : pass.Loaded) {
        FLine = line;
        const std::string context =
            "Component " + (c->Name().empty() ? std::string(c->ClassName()) : c->Name()) + ": ";
        Guarded(line, context, [c] { c->Loaded(); });
    }
}

void TReader::RunFinals(TPass& pass) {
    for (auto& f : pass.Finals)
        f();
}

void TReader::Rollback(TPass& pass, const std::string& oldName) {
    // Last change first, while every component made by the load still stands: an undo may
    // reach one of them (a connection to a new component, say).
    for (auto it = pass.Undos.rbegin(); it != pass.Undos.rend(); ++it) {
        try {
            (*it)();
        } catch (...) {
            // Putting back what the file changed reads values written from the same objects
            // a moment before; the failure being reported is the one that matters.
        }
    }
    for (auto it = pass.Created.rbegin(); it != pass.Created.rend(); ++it)
        (*it)->Free();
    try {
        pass.Root->SetName(oldName);
    } catch (...) {
    }
    for (auto [c, line] : pass.Loaded)
        if (!pass.New.count(c)) c->SetLoading(false);
}

void TReader::RunNested(const TPass& outer, TComponent* current,
                        const std::function<void()>& read) {
    TPass pass;
    pass.Root = outer.Root;
    pass.LookupOwner = outer.LookupOwner;
    pass.Current = current;
    TPass* saved = FPass;
    FPass = &pass;
    struct Reset {
        TReader& r;
        TPass* saved;
        ~Reset() { r.FPass = saved; }
    } reset{*this, saved};
    read();
    Finish(pass);
    // A value put back may reach components outside the file again (a connection); those
    // existed before the load, so this needs no undo of its own.
    RunFinals(pass);
}

void TReader::ReadComponentBody(TComponent& comp, const mw::FormObject& fo) {
    TPass& pass = Pass();
    TComponent* saved = pass.Current;
    pass.Current = &comp;
    ReadProperties(comp, fo.Properties);
    for (const mw::FormObject& child : fo.Children)
        ReadChild(comp, child);
    pass.Current = saved;
}

void TReader::ReadChild(TComponent& parent, const mw::FormObject& fo) {
    TPass& pass = Pass();
    FLine = fo.Line;
    TComponent* comp = fo.Name.empty() ? nullptr : parent.FindComponent(fo.Name);
    if (comp) {
        // Made by its owner's constructor (or there before the load): read in place.
        auto seen = [&](const auto& e) { return e.first == comp; };
        if (std::any_of(pass.Loaded.begin(), pass.Loaded.end(), seen))
            throw EReadError(fo.Line, "Duplicate component name " + fo.Name);
        CheckClassOf(*comp, fo);
        if (pass.New.count(&parent)) pass.New.insert(comp);
        comp->SetLoading(true);
        pass.Loaded.emplace_back(comp, fo.Line);
    } else {
        TClass cls = ComponentClass(fo.ClassName, fo.Line);
        comp = CreateComponent(cls, &parent, fo.Line);
        if (!pass.New.count(&parent)) pass.Created.push_back(comp);
        pass.New.insert(comp);
        comp->SetLoading(true);
        pass.Loaded.emplace_back(comp, fo.Line);
        Guarded(fo.Line, "", [&] { comp->AfterConstruction(); });
        SetComponentName(*comp, fo.Name, fo.Line);
    }
    ReadComponentBody(*comp, fo);
}

void TReader::ReadProperties(TObject& obj, const std::vector<mw::FormProperty>& props) {
    for (const mw::FormProperty& p : props)
        ReadProperty(obj, p);
}

void TReader::ReadProperty(TObject& obj, const mw::FormProperty& prop) {
    FLine = prop.Line;
    std::vector<std::string> segs = SplitDots(prop.Name);
    TObject* target = &obj;
    auto notFound = [&] {
        return EReadError(
            prop.Line, "Property \"" + prop.Name + "\" does not exist in " + target->ClassName());
    };
    for (size_t i = 0; i + 1 < segs.size(); ++i) {
        const TPropInfo* info = target->ClassType()->Properties().Find(segs[i]);
        if (!info || info->Kind != TPropKind::Object) throw notFound();
        TObject* sub = std::get<TObject*>(info->Get(*target));
        if (!sub)
            throw EReadError(prop.Line, "Property \"" + segs[i] + "\" of " + target->ClassName() +
                                            " holds no object");
        target = sub;
    }
    if (const TPropInfo* info = target->ClassType()->Properties().Find(segs.back())) {
        ReadPublished(*target, *info, prop);
        return;
    }
    auto* pers = dynamic_cast<TPersistent*>(target);
    if (pers) {
        FDefFound = false;
        ReadDefined(*pers, segs.back(), prop);
        if (FDefFound) return;
    }
    throw notFound();
}

void TReader::SetPublished(TObject& obj, const TPropInfo& info, const TPropValue& value,
                           const mw::FormProperty& prop, bool record) {
    const std::string context = "Property \"" + prop.Name + "\": ";
    if (record) {
        TPropValue old;
        Guarded(prop.Line, context, [&] { old = info.Get(obj); });
        Pass().Undos.push_back([&info, &obj, old] { info.Set(obj, old); });
    }
    Guarded(prop.Line, context, [&] { info.Set(obj, value); });
}

void TReader::ReadPublished(TObject& obj, const TPropInfo& info, const mw::FormProperty& prop) {
    const mw::FormValue& v = prop.Value;
    FLine = v.Line;
    if (info.Kind == TPropKind::Object) {
        auto* coll = dynamic_cast<TCollection*>(std::get<TObject*>(info.Get(obj)));
        if (!coll)
            throw EReadError(v.Line, "Property \"" + prop.Name +
                                         "\" holds an object: its properties are written by "
                                         "dotted names");
        if (v.Type != TValueType::vaCollection)
            throw EReadError(v.Line, "Invalid value for property \"" + prop.Name +
                                         "\": a collection expected but " + TypeName(v.Type) +
                                         " found");
        ReadCollection(*coll, prop);
        return;
    }
    if (!info.Set) throw EReadError(prop.Line, "Property \"" + prop.Name + "\" is read-only");
    if (info.Kind != TPropKind::Component) {
        SetPublished(obj, info, PublishedValue(info, prop), prop, Pass().Records());
        return;
    }
    if (v.Type == TValueType::vaNil) {
        SetPublished(obj, info, static_cast<TObject*>(nullptr), prop, Pass().Records());
        return;
    }
    if (v.Type != TValueType::vaIdent && v.Type != TValueType::vaString)
        throw EReadError(v.Line, "Invalid value for property \"" + prop.Name +
                                     "\": a component name expected but " + TypeName(v.Type) +
                                     " found");
    // Whether the change is recorded is decided now, for the component being read.
    const bool record = Pass().Records();
    AddFixup(v.Text, [this, &info, &obj, &prop, record](TComponent* c) {
        if (c && info.RefClass && !c->InheritsFrom(info.RefClass))
            throw EReadError(prop.Line, "Component " + prop.Value.Text + " is a " + c->ClassName() +
                                            ", not a " + info.RefClass->ClassName() +
                                            " (property \"" + prop.Name + "\")");
        SetPublished(obj, info, static_cast<TObject*>(c), prop, record);
    });
}

void TReader::ReadCollection(TCollection& coll, const mw::FormProperty& prop) {
    TPass& pass = Pass();
    if (pass.Records()) {
        // The whole collection is put back by reading its old items again.
        TWriter w(*pass.Root);
        mw::FormProperty saved{prop.Name, prop.Line, {}};
        bool captured = false;
        try {
            saved.Value = TWriterSteps::Collection(w, coll);
            captured = true;
        } catch (const std::exception&) {
            // An item that cannot be written can't be put back either; the load goes on.
        }
        if (captured)
            pass.Undos.push_back(
                [this, &coll, saved = std::move(saved), outer = &pass, current = pass.Current] {
                    RunNested(*outer, current, [&] { ReadCollection(coll, saved); });
                });
    }
    ++pass.CollectionDepth;
    struct Leave {
        TPass& p;
        ~Leave() { --p.CollectionDepth; }
    } leave{pass};
    Guarded(prop.Line, "Property \"" + prop.Name + "\": ", [&] { coll.Clear(); });
    for (const mw::FormItem& fi : prop.Value.Items) {
        TCollectionItem* item = nullptr;
        Guarded(fi.Line, "Property \"" + prop.Name + "\": ", [&] { item = coll.Add(); });
        ReadProperties(*item, fi.Properties);
    }
}

void TReader::ReadDefined(TPersistent& obj, const std::string& name, const mw::FormProperty& prop) {
    FDefName = &name;
    FDefProp = &prop;
    FDefObject = &obj;
    struct Reset {
        TReader& r;
        ~Reset() {
            r.FDefName = nullptr;
            r.FDefProp = nullptr;
            r.FDefObject = nullptr;
        }
    } reset{*this};
    Guarded(prop.Line, "Property \"" + prop.Name + "\": ", [&] { obj.DefineProperties(*this); });
}

void TReader::ReadDefinedValue(const mw::FormProperty& prop, const TReaderProc& read) {
    FCursors.push_back({std::span<const mw::FormValue>(&prop.Value, 1), 0, prop.Line});
    struct Clear {
        std::vector<TCursor>& c;
        ~Clear() { c.clear(); }
    } clear{FCursors};
    FLine = prop.Value.Line;
    read(*this);
    if (FCursors.size() != 1 || FCursors.front().Pos != 1)
        throw EReadError(FLine, "Data of property \"" + prop.Name + "\" not fully read");
}

void TReader::DefineProperty(const std::string& name, TReaderProc read, TWriterProc write, bool) {
    if (!FDefName || FDefFound || !SameText(name, *FDefName)) return;
    FDefFound = true;
    const mw::FormProperty& prop = *FDefProp;
    // DefineProperties calls made while reading the value are not about this property.
    FDefName = nullptr;
    if (!read) throw EReadError(prop.Line, "Property \"" + prop.Name + "\" cannot be read");
    TPass& pass = Pass();
    if (pass.Records() && write) {
        // The old value, as the property writes it, is read back by an undo.
        mw::FormProperty saved{prop.Name, prop.Line, {}};
        bool captured = false;
        try {
            TWriter w(*pass.Root);
            captured = TWriterSteps::Capture(w, *FDefObject, name, write, saved.Value);
        } catch (const std::exception&) {
            // A value that cannot be written can't be put back either; the load goes on.
        }
        if (captured)
            pass.Undos.push_back(
                [this, read, saved = std::move(saved), outer = &pass, current = pass.Current] {
                    RunNested(*outer, current, [&] { ReadDefinedValue(saved, read); });
                });
    }
    ReadDefinedValue(prop, read);
}

void TReader::DefineBinaryProperty(const std::string& name, TBinaryReadProc read,
                                   TBinaryWriteProc write, bool) {
    if (!FDefName || FDefFound || !SameText(name, *FDefName)) return;
    FDefFound = true;
    const mw::FormProperty& prop = *FDefProp;
    FDefName = nullptr;
    const mw::FormValue& v = prop.Value;
    FLine = v.Line;
    if (v.Type != TValueType::vaBinary)
        throw EReadError(v.Line, "Invalid value for property \"" + prop.Name +
                                     "\": binary data expected but " + TypeName(v.Type) + " found");
    if (!read) throw EReadError(prop.Line, "Property \"" + prop.Name + "\" cannot be read");
    if (Pass().Records() && write) {
        std::vector<uint8_t> old;
        bool captured = false;
        try {
            old = write();
            captured = true;
        } catch (const std::exception&) {
        }
        if (captured) Pass().Undos.push_back([read, old = std::move(old)] { read(old); });
    }
    read(v.Bytes);
}

void TReader::Finish(TPass& pass) {
    // Deferred procedures may add fixups and the other way round: run until both are done.
    size_t f = 0, d = 0;
    while (f < pass.Fixups.size() || d < pass.Deferreds.size()) {
        if (f < pass.Fixups.size()) {
            TPass::TFixup fx = pass.Fixups[f++];
            FLine = fx.Line;
            TComponent* c = nullptr;
            if (!fx.Path.empty()) {
                c = pass.Resolve(fx.Path);
                if (!c) throw EReadError(fx.Line, "Component " + fx.Path + " not found");
            }
            Guarded(fx.Line, "", [&] { fx.Apply(c); });
            continue;
        }
        TPass::TDeferred def = pass.Deferreds[d++];
        FLine = def.Line;
        Guarded(def.Line, "", [&] { def.Proc(); });
    }
}

TComponent* TReader::Root() const {
    return Pass().Root;
}

TComponent* TReader::CurrentComponent() const {
    return Pass().Current;
}

bool TReader::IsInFile(const TComponent* c) const {
    const TComponent* root = Pass().Root;
    for (; c; c = c->Owner())
        if (c == root) return true;
    return false;
}

TComponent* TReader::FindComponentPath(std::string_view path) const {
    return path.empty() ? nullptr : Pass().Resolve(path);
}

void TReader::AddFixup(std::string path, std::function<void(TComponent*)> apply) {
    Pass().Fixups.push_back({std::move(path), FLine, std::move(apply)});
}

void TReader::DeferUntilLoaded(std::function<void()> proc) {
    Pass().Deferreds.push_back({FLine, std::move(proc)});
}

void TReader::AddUndo(std::function<void()> undo) {
    if (Pass().Undoable) Pass().Undos.push_back(std::move(undo));
}

void TReader::DeferUntilDone(std::function<void()> proc) {
    Pass().Finals.push_back(std::move(proc));
}

int TReader::Line() const {
    return FLine;
}

void TReader::Error(const std::string& message) const {
    throw EReadError(FLine, message);
}

const mw::FormValue* TReader::Peek() const {
    if (FCursors.empty())
        throw std::logic_error("TReader: values are read only inside a defined property");
    const TCursor& c = FCursors.back();
    return c.Pos < c.Values.size() ? &c.Values[c.Pos] : nullptr;
}

const mw::FormValue& TReader::Take(TValueType expected, const char* what) {
    const mw::FormValue* v = Peek();
    if (!v)
        throw EReadError(FCursors.back().Line,
                         std::string(what) + " expected but end of list found");
    if (expected != TValueType::vaNull && v->Type != expected)
        throw EReadError(v->Line,
                         std::string(what) + " expected but " + TypeName(v->Type) + " found");
    FLine = v->Line;
    ++FCursors.back().Pos;
    return *v;
}

TValueType TReader::NextValue() const {
    const mw::FormValue* v = Peek();
    return v ? v->Type : TValueType::vaNull;
}

bool TReader::EndOfList() const {
    return Peek() == nullptr;
}

void TReader::ReadListBegin() {
    const mw::FormValue& v = Take(TValueType::vaList, "A list");
    FCursors.push_back({std::span<const mw::FormValue>(v.List), 0, v.Line});
}

void TReader::ReadListEnd() {
    if (FCursors.size() < 2) throw std::logic_error("TReader: ReadListEnd without ReadListBegin");
    if (const mw::FormValue* v = Peek())
        throw EReadError(v->Line,
                         std::string("End of list expected but ") + TypeName(v->Type) + " found");
    FCursors.pop_back();
}

std::string TReader::ReadString() {
    return Take(TValueType::vaString, "A string").Text;
}

int32_t TReader::ReadInteger() {
    const mw::FormValue& v = Take(TValueType::vaInteger, "An integer");
    if (v.Integer < std::numeric_limits<int32_t>::min() ||
        v.Integer > std::numeric_limits<int32_t>::max())
        throw EReadError(v.Line, "Integer " + std::to_string(v.Integer) + " out of range");
    return static_cast<int32_t>(v.Integer);
}

int64_t TReader::ReadInt64() {
    return Take(TValueType::vaInteger, "An integer").Integer;
}

double TReader::ReadFloat() {
    const mw::FormValue* next = Peek();
    if (next && next->Type == TValueType::vaInteger)
        return static_cast<double>(Take(TValueType::vaNull, "A number").Integer);
    if (next && IsNonFiniteWord(*next)) return NonFinite(Take(TValueType::vaNull, "A number"));
    return Take(TValueType::vaFloat, "A number").Float;
}

float TReader::ReadSingle() {
    const mw::FormValue* next = Peek();
    if (next && next->Type == TValueType::vaFloat && !next->Text.empty()) {
        float f = 0;
        const std::string& t = next->Text;
        auto r = std::from_chars(t.data(), t.data() + t.size(), f);
        if (r.ec == std::errc() && r.ptr == t.data() + t.size()) {
            Take(TValueType::vaNull, "");
            return f;
        }
    }
    double d = ReadFloat();
    if (std::isfinite(d) && std::fabs(d) > std::numeric_limits<float>::max())
        throw EReadError(FLine, "Value " + mw::FloatText(d) + " out of range of a single");
    return static_cast<float>(d);
}

bool TReader::ReadBoolean() {
    const mw::FormValue* next = Peek();
    if (next && next->Type == TValueType::vaFalse) {
        Take(TValueType::vaNull, "");
        return false;
    }
    return Take(TValueType::vaTrue, "A boolean").Type == TValueType::vaTrue;
}

std::string TReader::ReadIdent() {
    const mw::FormValue& v = Take(TValueType::vaNull, "An identifier");
    switch (v.Type) {
        case TValueType::vaIdent:
            return v.Text;
        case TValueType::vaTrue:
            return "True";
        case TValueType::vaFalse:
            return "False";
        case TValueType::vaNil:
            return "nil";
        default:
            throw EReadError(
                v.Line, std::string("An identifier expected but ") + TypeName(v.Type) + " found");
    }
}

std::vector<uint8_t> TReader::ReadBinary() {
    return Take(TValueType::vaBinary, "Binary data").Bytes;
}

std::vector<std::string> TReader::ReadSet() {
    return Take(TValueType::vaSet, "A set").Elements;
}

void TReader::ReadComponentRef(std::function<void(TComponent*)> apply) {
    const mw::FormValue& v = Take(TValueType::vaNull, "A component name");
    if (v.Type == TValueType::vaNil)
        AddFixup("", std::move(apply));
    else if (v.Type == TValueType::vaIdent || v.Type == TValueType::vaString)
        AddFixup(v.Text, std::move(apply));
    else
        throw EReadError(
            v.Line, std::string("A component name expected but ") + TypeName(v.Type) + " found");
}

void TReader::SkipValue() {
    Take(TValueType::vaNull, "A value");
}

// ---- Helpers

namespace mw {

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw EFilerError("Cannot open form file \"" + path + "\": " + std::strerror(errno));
    std::ostringstream s;
    s << in.rdbuf();
    if (in.bad()) throw EFilerError("Cannot read form file \"" + path + "\"");
    return s.str();
}

// Names the file in a read error, keeping its line.
template <class F>
auto InFile(const std::string& path, F&& f) {
    try {
        return f();
    } catch (const EReadError& e) {
        throw EReadError(e.Line(), e.Message() + " (in \"" + path + "\")");
    }
}

}  // namespace

std::string WriteComponentToText(TComponent& root) {
    return TWriter(root).WriteRootComponent();
}

TComponent* ReadComponentFromText(std::string_view text, TComponent* owner) {
    return TReader(text).ReadRootComponent(owner);
}

void ReadComponentPropertiesFromText(std::string_view text, TComponent& root) {
    TReader(text).ReadRootProperties(root);
}

void WriteComponentToFile(TComponent& root, const std::string& path) {
    std::string text = WriteComponentToText(root);
    std::string temp = path + ".tmp";
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        if (!out)
            throw EFilerError("Cannot create form file \"" + temp + "\": " + std::strerror(errno));
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.close();
        if (!out) {
            std::remove(temp.c_str());
            throw EFilerError("Cannot write form file \"" + temp + "\"");
        }
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
        int err = errno;
        std::remove(temp.c_str());
        throw EFilerError("Cannot replace form file \"" + path + "\": " + std::strerror(err));
    }
}

TComponent* ReadComponentFromFile(const std::string& path, TComponent* owner) {
    std::string text = ReadFile(path);
    return InFile(path, [&] { return ReadComponentFromText(text, owner); });
}

void ReadComponentPropertiesFromFile(const std::string& path, TComponent& root) {
    std::string text = ReadFile(path);
    InFile(path, [&] { ReadComponentPropertiesFromText(text, root); });
}

}  // namespace mw
