#include "media_objects/QMDMOSupport.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "dmoreg.h"
#include "mwstring.h"

namespace {

const char* const kCurveNames[] = {"ctJump", "ctLinear", "ctSquare", "ctInvSquare", "ctSine"};
const char* const kTimeModeNames[] = {"stfCurrent", "etfMusic", "etfReference", "etfSamples"};
const char* const kStartModeNames[] = {"esmStartValue", "semCurrentValue", "semDefaultValue"};

std::string Upper(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string Trim(const std::string& s) {
    const auto first = s.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    const auto last = s.find_last_not_of(" \t\r\n");
    return s.substr(first, last - first + 1);
}

// A float as the user reads it: up to seven significant digits, no trailing zeros.
std::string FloatToText(float v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.7g", static_cast<double>(v));
    return buf;
}

// Text to float; false when the whole (trimmed) text is not a number.
bool TextToFloat(const std::string& text, float& out) {
    const std::string t = Trim(text);
    if (t.empty()) return false;
    char* end = nullptr;
    const float v = std::strtof(t.c_str(), &end);
    if (end != t.c_str() + t.size() || std::isnan(v)) return false;
    out = v;
    return true;
}

// Text of a WCHAR field of at most 32 characters (the record's label and unit).
std::string Field32(const WCHAR (&field)[32]) {
    size_t n = 0;
    while (n < 32 && field[n])
        ++n;
    return mw::Utf16ToUtf8(std::u16string_view(field, n));
}

TQMDMOFilter::TDmoSelectHandler& SelectHandler() {
    static TQMDMOFilter::TDmoSelectHandler h;
    return h;
}
std::mutex& SelectHandlerMutex() {
    static std::mutex m;
    return m;
}

}  // namespace

// ---- start values

TQMDMOBasicEnvelopeStartValue::TQMDMOBasicEnvelopeStartValue(TQMDMOBasicEnvelopeItem* ownerItem,
                                                             IChangeNotifyLock* lock)
    : TLockPersistent(ownerItem, lock,
                      [ownerItem] {
                          if (ownerItem) ownerItem->NotifyProp();
                      }),
      FOwnerItem(ownerItem) {}

TQMDMOEnvilopeStartMode TQMDMOBasicEnvelopeStartValue::StartMode() const {
    TLockGuard g = Lock()->AcquireRead();
    return FStartMode;
}

void TQMDMOBasicEnvelopeStartValue::SetStartMode(TQMDMOEnvilopeStartMode value) {
    if (value > semDefaultValue) return;
    Setters().Setter(FStartMode, value, Notifier(), true);
}

void TQMDMOBasicEnvelopeStartValue::Publish(TPropertyList& p) {
    p.AddEnum<TQMDMOBasicEnvelopeStartValue>(
        "StartMode", &TQMDMOBasicEnvelopeStartValue::StartMode,
        &TQMDMOBasicEnvelopeStartValue::SetStartMode, esmStartValue,
        {kStartModeNames[0], kStartModeNames[1], kStartModeNames[2]});
}

float TQMDMOFloatEnvelopeStartValue::StartValue() const {
    TLockGuard g = Lock()->AcquireRead();
    return FStartValue;
}

void TQMDMOFloatEnvelopeStartValue::SetStartValue(float value) {
    Setters().Setter(FStartValue, value, Notifier(), true);
}

void TQMDMOFloatEnvelopeStartValue::Publish(TPropertyList& p) {
    p.Add<TQMDMOFloatEnvelopeStartValue>("StartValue", &TQMDMOFloatEnvelopeStartValue::StartValue,
                                         &TQMDMOFloatEnvelopeStartValue::SetStartValue, 0.0f);
}

int32_t TQMDMOIntegerEnvelopeStartValue::StartValue() const {
    TLockGuard g = Lock()->AcquireRead();
    return FStartValue;
}

void TQMDMOIntegerEnvelopeStartValue::SetStartValue(int32_t value) {
    Setters().Setter(FStartValue, value, Notifier(), true);
}

void TQMDMOIntegerEnvelopeStartValue::SetSingleStartValue(float value) {
    SetStartValue(static_cast<int32_t>(std::lround(value)));
}

void TQMDMOIntegerEnvelopeStartValue::Publish(TPropertyList& p) {
    p.Add<TQMDMOIntegerEnvelopeStartValue>("StartValue",
                                           &TQMDMOIntegerEnvelopeStartValue::StartValue,
                                           &TQMDMOIntegerEnvelopeStartValue::SetStartValue, 0);
}

bool TQMDMOBooleanEnvelopeStartValue::StartValue() const {
    TLockGuard g = Lock()->AcquireRead();
    return FStartValue;
}

void TQMDMOBooleanEnvelopeStartValue::SetStartValue(bool value) {
    Setters().Setter(FStartValue, value, Notifier(), true);
}

void TQMDMOBooleanEnvelopeStartValue::Publish(TPropertyList& p) {
    p.Add<TQMDMOBooleanEnvelopeStartValue>("StartValue",
                                           &TQMDMOBooleanEnvelopeStartValue::StartValue,
                                           &TQMDMOBooleanEnvelopeStartValue::SetStartValue, false);
}

// ---- items

TQMDMOBasicEnvelopeItem::TQMDMOBasicEnvelopeItem(TCollection* collection)
    : TLockCollectionItem(collection) {}

int64_t TQMDMOBasicEnvelopeItem::StartTime() const {
    TLockGuard g = Lock()->AcquireRead();
    return FStartTime;
}

void TQMDMOBasicEnvelopeItem::SetStartTime(int64_t value) {
    Setters().Setter(FStartTime, value, Notifier(), true);
}

int64_t TQMDMOBasicEnvelopeItem::Length() const {
    TLockGuard g = Lock()->AcquireRead();
    return FLength;
}

void TQMDMOBasicEnvelopeItem::SetLength(int64_t value) {
    Setters().Setter(FLength, value, Notifier(), true);
}

TQMDMOCurveType TQMDMOBasicEnvelopeItem::CurveType() const {
    TLockGuard g = Lock()->AcquireRead();
    return FCurveType;
}

void TQMDMOBasicEnvelopeItem::SetCurveType(TQMDMOCurveType value) {
    auto* items = dynamic_cast<TQMDMOBasicEnvelopeItems*>(Collection());
    const TQMDMOCurves available = items ? items->AvailableCurves() : kQMDMOAllCurves;
    if (value > ctSine || !(available & (1u << value))) return;
    Setters().Setter(FCurveType, value, Notifier(), true);
}

std::string TQMDMOBasicEnvelopeItem::GetDisplayName() const {
    return std::to_string(StartTime()) + " (" + FloatToText(GetStartValue()) + " - " +
           FloatToText(GetEndValue()) + ")";
}

void TQMDMOBasicEnvelopeItem::Publish(TPropertyList& p) {
    p.Add<TQMDMOBasicEnvelopeItem>("StartTime", &TQMDMOBasicEnvelopeItem::StartTime,
                                   &TQMDMOBasicEnvelopeItem::SetStartTime, int64_t(0));
    p.Add<TQMDMOBasicEnvelopeItem>("Length", &TQMDMOBasicEnvelopeItem::Length,
                                   &TQMDMOBasicEnvelopeItem::SetLength, int64_t(10000000));
    p.AddEnum<TQMDMOBasicEnvelopeItem>(
        "CurveType", &TQMDMOBasicEnvelopeItem::CurveType, &TQMDMOBasicEnvelopeItem::SetCurveType,
        ctJump, {kCurveNames[0], kCurveNames[1], kCurveNames[2], kCurveNames[3], kCurveNames[4]});
}

void TQMDMOBasicIntegerEnvelopeItem::SetSingleEndValue(float value) {
    SetEndValue(static_cast<int32_t>(std::lround(value)));
}

TQMDMOBasicEnvelopeItems::TQMDMOBasicEnvelopeItems(TQMDMOBasicParameterEnvelope* owner,
                                                   IChangeNotifyLock* lock,
                                                   TCollectionItemClass itemClass,
                                                   TQMDMOCurves availableCurves)
    : TLockCollection(owner, lock, itemClass),
      FAvailableCurves(availableCurves),
      FItemOwner(owner) {}

TQMDMOBasicEnvelopeItem* TQMDMOBasicEnvelopeItems::GetItem(int index) const {
    TLockGuard g = Lock()->AcquireRead();
    return static_cast<TQMDMOBasicEnvelopeItem*>(TCollection::GetItem(index));
}

TQMDMOBasicEnvelopeItem* TQMDMOBasicEnvelopeItems::Add() {
    TLockGuard g = Lock()->AcquireWrite();
    return static_cast<TQMDMOBasicEnvelopeItem*>(TCollection::Add());
}

void TQMDMOBasicEnvelopeItems::NewItemCreated(TCollectionItem* item) {
    if (Count() > 1) {
        // The new item is the last one at this point.
        auto* before = static_cast<TQMDMOBasicEnvelopeItem*>(TCollection::GetItem(Count() - 2));
        static_cast<TQMDMOBasicEnvelopeItem*>(item)->SetStartTime(before->StartTime() +
                                                                  before->Length());
    }
    TLockCollection::NewItemCreated(item);
}

// ---- envelopes

TQMDMOBasicParameterEnvelope::TQMDMOBasicParameterEnvelope(TQMDMOParameter* ownerParameter,
                                                           IChangeNotifyLock* lock)
    : TLockPersistent(ownerParameter, lock,
                      [ownerParameter] {
                          if (ownerParameter && ownerParameter->ParamOwner())
                              ownerParameter->ParamOwner()->UpdateEnvelopeStorage(ownerParameter);
                      }),
      FOwnerParameter(ownerParameter) {}

bool TQMDMOBasicParameterEnvelope::Enabled() const {
    TLockGuard g = Lock()->AcquireRead();
    return FEnabled;
}

void TQMDMOBasicParameterEnvelope::SetEnabled(bool value) {
    Setters().Setter(FEnabled, value, Notifier(), true);
}

void TQMDMOBasicParameterEnvelope::Publish(TPropertyList& p) {
    p.Add<TQMDMOBasicParameterEnvelope>("Enabled", &TQMDMOBasicParameterEnvelope::Enabled,
                                        &TQMDMOBasicParameterEnvelope::SetEnabled, false);
}

TQMDMOEnumParameterEnvelope::TQMDMOEnumParameterEnvelope(TQMDMOEnumParameter* owner,
                                                         IChangeNotifyLock* lock,
                                                         TQMDMOCurves curves)
    : TQMDMOParameterEnvelopeOf(owner, lock, curves), FOwner(owner) {}

// ---- parameters

TQMDMOParameter::TQMDMOParameter(TQMDMOParameters* owner, IChangeNotifyLock* lock,
                                 const MP_PARAMINFO& info, float value)
    : TLockPersistent(owner, lock),
      FParamOwner(owner),
      FName(Field32(info.szLabel)),
      FValueUnit(Field32(info.szUnitText)),
      FValue(value),
      FMin(info.mpdMinValue),
      FMax(info.mpdMaxValue),
      FDefaultValue(info.mpdNeutralValue) {}

TQMDMOParameter::TQMDMOParameter(IChangeNotifyLock* lock) : TLockPersistent(nullptr, lock) {}

TChangeClosure TQMDMOParameter::ValueChanged() {
    return [this] {
        if (FParamOwner) FParamOwner->UpdateStorage(this);
    };
}

TQMDMOCurves TQMDMOParameter::CurvesOf(const MP_PARAMINFO& info) const {
    // The platform's caps carry the curves as 1 << curve type.
    return static_cast<TQMDMOCurves>(info.mopCaps & kQMDMOAllCurves);
}

void TQMDMOParameter::SetSingleValue(float value) {
    Setters().Setter(FValue, value, ValueChanged(), true);
}

float TQMDMOParameter::GetSingleValue() const {
    TLockGuard g = Lock()->AcquireRead();
    return FValue;
}

void TQMDMOParameter::SetEnvelope(const TQMDMOBasicParameterEnvelope* envelope) {
    if (!envelope) return;
    TQMDMOBasicParameterEnvelope* mine = GetEnvelope();
    TQMDMOBasicEnvelopeItems* items = mine->GetEnvelopes();
    const TQMDMOBasicEnvelopeItems* from = envelope->GetEnvelopes();
    TLockGuard g = Lock()->AcquireWrite();
    items->Clear();
    for (int i = 0; i < from->Count(); ++i) {
        const TQMDMOBasicEnvelopeItem* src = from->GetItem(i);
        TQMDMOBasicEnvelopeItem* dst = items->Add();
        dst->SetStartTime(src->StartTime());
        dst->SetLength(src->Length());
        dst->SetCurveType(src->CurveType());
        dst->SetStartMode(src->GetStartMode());
        dst->SetSingleStartValue(src->GetStartValue());
        dst->SetSingleEndValue(src->GetEndValue());
    }
    mine->SetEnabled(envelope->Enabled());
    // Even when nothing above changed, the object now has this envelope.
    if (FParamOwner) FParamOwner->UpdateEnvelopeStorage(this);
}

std::string TQMDMOParameter::GetDisplayValue() const {
    return FloatToText(GetSingleValue());
}

int32_t TQMDMOBasicIntegerParameter::Value() const {
    return static_cast<int32_t>(std::lround(GetSingleValue()));
}

void TQMDMOBasicIntegerParameter::SetValue(int32_t value) {
    Setters().Setter(FValue, static_cast<float>(std::clamp(value, IntMin(), IntMax())),
                     ValueChanged(), true);
}

void TQMDMOBasicIntegerParameter::SetStringValue(const std::string& text) {
    float v;
    if (!TextToFloat(text, v)) v = FDefaultValue;
    SetValue(static_cast<int32_t>(std::lround(v)));
}

std::string TQMDMOBasicIntegerParameter::GetDisplayValue() const {
    return std::to_string(Value());
}

TQMDMOIntegerParameter::TQMDMOIntegerParameter(TQMDMOParameters* owner, IChangeNotifyLock* lock,
                                               const MP_PARAMINFO& info, float value)
    : TQMDMOBasicIntegerParameter(owner, lock, info, value),
      FEnvelope(new TQMDMOIntegerParameterEnvelope(this, lock, CurvesOf(info))) {}

TQMDMOFloatParameter::TQMDMOFloatParameter(TQMDMOParameters* owner, IChangeNotifyLock* lock,
                                           const MP_PARAMINFO& info, float value)
    : TQMDMOParameter(owner, lock, info, value),
      FEnvelope(new TQMDMOFloatParameterEnvelope(this, lock, CurvesOf(info))) {}

TQMDMOFloatParameter::TQMDMOFloatParameter(IChangeNotifyLock* lock)
    : TQMDMOParameter(lock),
      FEnvelope(new TQMDMOFloatParameterEnvelope(this, lock, kQMDMOAllCurves)) {}

void TQMDMOFloatParameter::SetValue(float value) {
    Setters().SetterMinMax(FValue, value, FMin, FMax, ValueChanged(), true);
}

void TQMDMOFloatParameter::SetStringValue(const std::string& text) {
    float v;
    if (!TextToFloat(text, v)) v = FDefaultValue;
    SetValue(v);
}

TQMDMOBoolParameter::TQMDMOBoolParameter(TQMDMOParameters* owner, IChangeNotifyLock* lock,
                                         const MP_PARAMINFO& info, float value)
    : TQMDMOParameter(owner, lock, info, value),
      FEnvelope(new TQMDMOBooleanParameterEnvelope(this, lock, CurvesOf(info))) {}

void TQMDMOBoolParameter::SetStringValue(const std::string& text) {
    const std::string t = Upper(text);
    if (t == "TRUE")
        SetSingleValue(1.0f);
    else if (t == "FALSE")
        SetSingleValue(0.0f);
    if (FParamOwner) FParamOwner->UpdateStorage(this);
}

std::string TQMDMOBoolParameter::GetDisplayValue() const {
    return Value() ? "True" : "False";
}

TQMDMOEnumParameter::TQMDMOEnumParameter(TQMDMOParameters* owner, IChangeNotifyLock* lock,
                                         const MP_PARAMINFO& info, float value,
                                         IMediaParamInfo* paramInfo, DWORD index)
    : TQMDMOBasicIntegerParameter(owner, lock, info, value),
      FEnvelope(new TQMDMOEnumParameterEnvelope(this, lock, CurvesOf(info))) {
    WCHAR* block = nullptr;
    if (!paramInfo || FAILED(paramInfo->GetParamText(index, &block)) || !block) return;
    // Name and unit come first; then one text per value, up to an empty one.
    const WCHAR* p = block;
    for (int skip = 0; skip < 2; ++skip)
        p += mw::U16Len(p) + 1;
    for (; *p; p += mw::U16Len(p) + 1)
        FEnumValues.push_back(mw::Utf16ToUtf8(p));
    CoTaskMemFree(block);
}

void TQMDMOEnumParameter::SetStringValue(const std::string& text) {
    const std::string wanted = Upper(Trim(text));
    for (size_t i = 0; i < FEnumValues.size(); ++i) {
        if (Upper(Trim(FEnumValues[i])) != wanted) continue;
        SetSingleValue(static_cast<float>(i));
        if (FParamOwner) FParamOwner->UpdateStorage(this);
        return;
    }
}

std::string TQMDMOEnumParameter::GetDisplayValue() const {
    const long index = std::lround(GetSingleValue());
    if (index < 0 || index >= static_cast<long>(FEnumValues.size())) return std::to_string(index);
    return FEnumValues[static_cast<size_t>(index)];
}

// ---- the parameter list

TQMDMOParameters::TQMDMOParameters(TQMDMOFilter* filter, IChangeNotifyLock* lock)
    : TLockPersistent(filter, lock), FFilter(filter) {}

TQMDMOParameters::~TQMDMOParameters() = default;

TQMDMOParameter* TQMDMOParameters::GetItem(int index) const {
    TLockGuard g = Lock()->AcquireRead();
    return index >= 0 && index < static_cast<int>(FItems.size()) ? FItems[index].get() : nullptr;
}

int TQMDMOParameters::GetCount() const {
    TLockGuard g = Lock()->AcquireRead();
    return static_cast<int>(FItems.size());
}

int TQMDMOParameters::StorageCount() const {
    TLockGuard g = Lock()->AcquireRead();
    return static_cast<int>(FStorage.size());
}

TQMDMOParameter* TQMDMOParameters::GetStorageItem(int index) const {
    TLockGuard g = Lock()->AcquireRead();
    return index >= 0 && index < static_cast<int>(FStorage.size()) ? FStorage[index].get()
                                                                   : nullptr;
}

void TQMDMOParameters::Clear() {
    TLockGuard g = Lock()->AcquireWrite();
    FItems.clear();
    FLastIndicatedCount = 0;
}

void TQMDMOParameters::Add(TQMDMOParameter* parameter) {
    TLockGuard g = Lock()->AcquireWrite();
    FItems.emplace_back(parameter);
}

int TQMDMOParameters::IndexOf(const TQMDMOParameter* parameter) const {
    for (size_t i = 0; i < FItems.size(); ++i)
        if (FItems[i].get() == parameter) return static_cast<int>(i);
    return -1;
}

void TQMDMOParameters::FillParams(IMediaObject* object) {
    TLockGuard g = Lock()->AcquireWrite();
    Clear();
    if (!object) return;
    ComPtr<IMediaParamInfo> info;
    ComPtr<IMediaParams> params;
    object->QueryInterface(IID_IMediaParamInfo, info.ReleaseAndGetVoidAddress());
    object->QueryInterface(IID_IMediaParams, params.ReleaseAndGetVoidAddress());
    if (!info || !params) return;
    DWORD count = 0;
    if (FAILED(info->GetParamCount(&count))) count = 0;
    for (DWORD i = 0; i < count; ++i) {
        MP_PARAMINFO pi{};
        MP_DATA value = 0;
        if (FAILED(info->GetParamInfo(i, &pi)) || FAILED(params->GetParam(i, &value))) continue;
        // A parameter of another type is skipped, so later ones sit one place earlier here
        // than on the platform.
        switch (pi.mpType) {
            case MPT_INT:
                Add(new TQMDMOIntegerParameter(this, Lock(), pi, value));
                break;
            case MPT_FLOAT:
                Add(new TQMDMOFloatParameter(this, Lock(), pi, value));
                break;
            case MPT_BOOL:
                Add(new TQMDMOBoolParameter(this, Lock(), pi, value));
                break;
            case MPT_ENUM:
                Add(new TQMDMOEnumParameter(this, Lock(), pi, value, info.Get(), i));
                break;
            default:
                break;
        }
    }
    FLastIndicatedCount = static_cast<int32_t>(FItems.size());
    TryApplyValues();
}

void TQMDMOParameters::UpdateStorage(TQMDMOParameter* parameter) {
    const int index = IndexOf(parameter);
    if (index >= 0 && index < static_cast<int>(FStorage.size()))
        FStorage[index]->FValue = parameter->GetSingleValue();
    if (FFilter) FFilter->AplyParam(index, parameter);
}

void TQMDMOParameters::UpdateEnvelopeStorage(TQMDMOParameter* parameter) {
    const int index = IndexOf(parameter);
    if (index >= 0 && index < static_cast<int>(FStorage.size()) && !FInLoading)
        FStorage[index]->SetEnvelope(parameter->GetEnvelope());
    if (FFilter) FFilter->AplyEnvelope(index, parameter);
}

void TQMDMOParameters::TryApplyValues() {
    TLockGuard g = Lock()->AcquireWrite();
    if (FInLoading || FStorage.empty() || FItems.empty()) return;
    FInLoading = true;
    const size_t n = std::min(FItems.size(), FStorage.size());
    for (size_t i = 0; i < n; ++i) {
        FItems[i]->SetSingleValue(FStorage[i]->GetSingleValue());
        FItems[i]->SetEnvelope(FStorage[i]->GetEnvelope());
    }
    // Values beyond the object's parameters have nowhere to go.
    FStorage.clear();
    FInLoading = false;
}

void TQMDMOParameters::DefineProperties(TFiler& filer) {
    TLockPersistent::DefineProperties(filer);
    bool hasData;
    {
        TLockGuard g = Lock()->AcquireRead();
        hasData = !FItems.empty() || !FStorage.empty();
    }
    filer.DefineProperty(
        "FloatParameters", [this](TReader& r) { ReadData(r); },
        [this](TWriter& w) { WriteData(w); }, hasData);
}

void TQMDMOParameters::WriteData(TWriter& writer) const {
    TLockGuard g = Lock()->AcquireRead();
    // Values not applied yet are written back as they were read.
    const auto& list = FItems.empty() ? FStorage : FItems;
    writer.WriteListBegin();
    for (const auto& p : list) {
        writer.WriteSingle(p->GetSingleValue());
        const TQMDMOBasicParameterEnvelope* env = p->GetEnvelope();
        writer.WriteBoolean(env->Enabled());
        writer.WriteListBegin();
        const TQMDMOBasicEnvelopeItems* items = env->GetEnvelopes();
        for (int i = 0; i < items->Count(); ++i) {
            const TQMDMOBasicEnvelopeItem* item = items->GetItem(i);
            writer.WriteListBegin();
            writer.WriteInteger(item->StartTime());
            writer.WriteInteger(item->Length());
            writer.WriteSingle(item->GetStartValue());
            writer.WriteSingle(item->GetEndValue());
            writer.WriteIdent(kStartModeNames[item->GetStartMode()]);
            writer.WriteListEnd();
        }
        writer.WriteListEnd();
    }
    writer.WriteListEnd();
}

void TQMDMOParameters::ReadData(TReader& reader) {
    // Every kind of parameter comes back as a float parameter.
    std::vector<TOwned<TQMDMOParameter>> read;
    reader.ReadListBegin();
    while (!reader.EndOfList()) {
        TOwned<TQMDMOParameter> p(new TQMDMOFloatParameter(Lock()));
        p->SetSingleValue(reader.ReadSingle());
        TQMDMOBasicParameterEnvelope* env = p->GetEnvelope();
        env->SetEnabled(reader.ReadBoolean());
        reader.ReadListBegin();
        while (!reader.EndOfList()) {
            reader.ReadListBegin();
            TQMDMOBasicEnvelopeItem* item = env->GetEnvelopes()->Add();
            item->SetStartTime(reader.ReadInt64());
            item->SetLength(reader.ReadInt64());
            item->SetSingleStartValue(reader.ReadSingle());
            item->SetSingleEndValue(reader.ReadSingle());
            const std::string mode = reader.ReadIdent();
            const auto* at =
                std::find(std::begin(kStartModeNames), std::end(kStartModeNames), mode);
            if (at == std::end(kStartModeNames))
                reader.Error("Unknown start mode \"" + mode + "\"");
            item->SetStartMode(
                static_cast<TQMDMOEnvilopeStartMode>(at - std::begin(kStartModeNames)));
            reader.ReadListEnd();
        }
        reader.ReadListEnd();
        read.push_back(std::move(p));
    }
    reader.ReadListEnd();
    {
        TLockGuard g = Lock()->AcquireWrite();
        FStorage = std::move(read);
    }
    TryApplyValues();
}

// ---- time format

TQMDMOEnvelopeTimeFormat::TQMDMOEnvelopeTimeFormat(TQMDMOFilter* ownerFilter,
                                                   IChangeNotifyLock* lock)
    : TLockPersistent(ownerFilter, lock), FOwnerFilter(ownerFilter) {}

TQMDMOTimeMode TQMDMOEnvelopeTimeFormat::Mode() const {
    TLockGuard g = Lock()->AcquireRead();
    return FMode;
}

void TQMDMOEnvelopeTimeFormat::SetMode(TQMDMOTimeMode value) {
    if (value > etfSamples) return;
    Setters().Setter(
        FMode, value, [this] { FOwnerFilter->AplyMode(); }, true);
}

uint32_t TQMDMOEnvelopeTimeFormat::Units() const {
    TLockGuard g = Lock()->AcquireRead();
    return FUnits;
}

void TQMDMOEnvelopeTimeFormat::SetUnits(uint32_t value) {
    Setters().Setter(
        FUnits, value, [this] { FOwnerFilter->AplyMode(); }, true);
}

void TQMDMOEnvelopeTimeFormat::Publish(TPropertyList& p) {
    p.AddEnum<TQMDMOEnvelopeTimeFormat>(
        "Mode", &TQMDMOEnvelopeTimeFormat::Mode, &TQMDMOEnvelopeTimeFormat::SetMode, stfCurrent,
        {kTimeModeNames[0], kTimeModeNames[1], kTimeModeNames[2], kTimeModeNames[3]});
    p.Add<TQMDMOEnvelopeTimeFormat>("Units", &TQMDMOEnvelopeTimeFormat::Units,
                                    &TQMDMOEnvelopeTimeFormat::SetUnits, 0u);
}

// ---- the filter

TQMDMOFilter::TQMDMOFilter(TPersistent* owner, IChangeNotifyLock* lock, const GUID& category)
    : TLockPersistent(owner, lock),
      FParameters(new TQMDMOParameters(this, Lock())),
      FguidCategory(category),
      FTimeFormat(new TQMDMOEnvelopeTimeFormat(this, Lock())) {}

TQMDMOFilter::~TQMDMOFilter() {
    // The parameters go first: they must not write into an object released under them.
    FParameters.reset();
    ReleaseObjects();
}

void TQMDMOFilter::Publish(TPropertyList& p) {
    p.AddObject<TQMDMOFilter>("TimeFormat", &TQMDMOFilter::TimeFormat);
    p.AddObject<TQMDMOFilter>("Parameters", &TQMDMOFilter::Parameters);
}

void TQMDMOFilter::ReleaseObjects() {
    TLockGuard g = Lock()->AcquireWrite();
    FObjectInPlace = nullptr;
    FMediaObject = nullptr;
}

ComPtr<IMediaObject> TQMDMOFilter::GetMediaObject() {
    TLockGuard g = Lock()->AcquireWrite();
    if (FMediaObject) return FMediaObject;
    if (FDmoName.empty()) return nullptr;
    if (FAILED(CoCreateInstance(FDmoClassID, nullptr, 3, IID_IMediaObject,
                                FMediaObject.ReleaseAndGetVoidAddress()))) {
        ReleaseObjects();
        return nullptr;
    }
    FObjectInPlace = nullptr;
    FMediaObject.As(&FObjectInPlace);
    return FMediaObject;
}

IMediaObject* TQMDMOFilter::GetVC_MediaObject() {
    return GetMediaObject().Detach();
}

ComPtr<IMediaObject> TQMDMOFilter::GetOpenObject() const {
    TLockGuard g = Lock()->AcquireRead();
    return FMediaObject;
}

ComPtr<IMediaObjectInPlace> TQMDMOFilter::GetObjectInPlace() const {
    TLockGuard g = Lock()->AcquireRead();
    return FObjectInPlace;
}

bool TQMDMOFilter::Open() {
    TLockGuard g = Lock()->AcquireWrite();
    if (FMediaObject) return true;
    ComPtr<IMediaObject> object = GetMediaObject();
    if (!object) return false;
    FParameters->FillParams(object.Get());
    return true;
}

int64_t TQMDMOFilter::GetLatency() {
    if (!Open()) return 0;
    ComPtr<IMediaObjectInPlace> inPlace = GetObjectInPlace();
    REFERENCE_TIME latency = 0;
    if (!inPlace || FAILED(inPlace->GetLatency(&latency))) return 0;
    return latency;
}

std::vector<std::string> TQMDMOFilter::GetDmoNames() const {
    std::vector<std::string> names;
    ComPtr<IEnumDMO> e;
    if (FAILED(DMOEnum(FguidCategory, DMO_ENUMF_INCLUDE_KEYED, 0, nullptr, 0, nullptr,
                       e.ReleaseAndGetAddressOf())) ||
        !e)
        return names;
    CLSID id;
    WCHAR* name = nullptr;
    while (e->Next(1, &id, &name, nullptr) == S_OK) {
        names.push_back(mw::Utf16ToUtf8(name));
        CoTaskMemFree(name);
    }
    return names;
}

void TQMDMOFilter::GetDmoNames(IStringArrayList* list) const {
    if (!list) return;
    for (const std::string& n : GetDmoNames())
        list->Add(n);
}

GUID TQMDMOFilter::ClassIdFromName(const std::string& name) const {
    ComPtr<IEnumDMO> e;
    if (FAILED(DMOEnum(FguidCategory, DMO_ENUMF_INCLUDE_KEYED, 0, nullptr, 0, nullptr,
                       e.ReleaseAndGetAddressOf())) ||
        !e)
        return GUID_NULL;
    CLSID id;
    WCHAR* text = nullptr;
    GUID found = GUID_NULL;
    while (e->Next(1, &id, &text, nullptr) == S_OK) {
        const bool match = mw::Utf16ToUtf8(text) == name;
        CoTaskMemFree(text);
        if (match) {
            found = id;
            break;
        }
    }
    return found;
}

std::string TQMDMOFilter::DmoName() const {
    TLockGuard g = Lock()->AcquireRead();
    return FDmoName;
}

GUID TQMDMOFilter::DmoClassID() const {
    TLockGuard g = Lock()->AcquireRead();
    return FDmoClassID;
}

void TQMDMOFilter::SetDmoName(const std::string& name) {
    TLockGuard g = Lock()->AcquireWrite();
    if (name == FDmoName) return;
    ReleaseObjects();
    Setters().Setter(FDmoName, name, Notifier(), true);
    Setters().Setter(FDmoClassID, ClassIdFromName(name), {}, true);
    Open();
}

bool TQMDMOFilter::ShowDmoSelectDialog(bool fullScreen) {
    TDmoSelectHandler handler;
    {
        std::lock_guard lock(SelectHandlerMutex());
        handler = SelectHandler();
    }
    if (!handler) return false;
    std::string selected = DmoName();
    if (!handler("DMO Filters", GetDmoNames(), selected, fullScreen)) return false;
    SetDmoName(selected);
    return true;
}

void TQMDMOFilter::SetDmoSelectHandler(TDmoSelectHandler handler) {
    std::lock_guard lock(SelectHandlerMutex());
    SelectHandler() = std::move(handler);
}

void TQMDMOFilter::AplyModeInt(IMediaParams* params) {
    const TQMDMOTimeMode mode = FTimeFormat->Mode();
    const uint32_t units = FTimeFormat->Units();
    switch (mode) {
        case etfMusic:
            params->SetTimeFormat(GUID_TIME_MUSIC, units);
            break;
        case etfReference:
            params->SetTimeFormat(GUID_TIME_REFERENCE, units);
            break;
        case etfSamples:
            params->SetTimeFormat(GUID_TIME_SAMPLES, units);
            break;
        case stfCurrent:
            break;
    }
}

void TQMDMOFilter::AplyMode() {
    TLockGuard g = Lock()->AcquireWrite();
    if (!FMediaObject) return;
    if (ComPtr<IMediaParams> params = FMediaObject.As<IMediaParams>()) AplyModeInt(params.Get());
}

void TQMDMOFilter::AplyParam(int index, TQMDMOParameter* parameter) {
    TLockGuard g = Lock()->AcquireWrite();
    if (!FMediaObject || !parameter) return;
    if (ComPtr<IMediaParams> params = FMediaObject.As<IMediaParams>())
        params->SetParam(static_cast<DWORD>(index), parameter->GetSingleValue());
}

void TQMDMOFilter::AplyEnvelopeInt(IMediaParams* params, int index, TQMDMOParameter* parameter) {
    const DWORD at = static_cast<DWORD>(index);
    if (parameter->FEnvelopeFilled)
        params->FlushEnvelope(at, parameter->FEnvTotalStart, parameter->FEnvTotalEnd);
    parameter->FEnvelopeFilled = false;
    parameter->FEnvTotalStart = 0;
    parameter->FEnvTotalEnd = 0;
    const TQMDMOBasicParameterEnvelope* envelope = parameter->GetEnvelope();
    if (!envelope->Enabled()) return;
    const TQMDMOBasicEnvelopeItems* items = envelope->GetEnvelopes();
    std::vector<MP_ENVELOPE_SEGMENT> segments;
    for (int i = 0; i < items->Count(); ++i) {
        const TQMDMOBasicEnvelopeItem* item = items->GetItem(i);
        MP_ENVELOPE_SEGMENT s{};
        s.rtStart = item->StartTime();
        s.rtEnd = item->StartTime() + item->Length();
        s.valStart = item->GetStartValue();
        s.valEnd = item->GetEndValue();
        s.iCurve = static_cast<MP_CURVE_TYPE>(1u << item->CurveType());
        s.flags = item->GetStartMode();
        if (!parameter->FEnvelopeFilled) {
            parameter->FEnvelopeFilled = true;
            parameter->FEnvTotalStart = s.rtStart;
            parameter->FEnvTotalEnd = s.rtEnd;
        } else {
            parameter->FEnvTotalStart = std::min(parameter->FEnvTotalStart, s.rtStart);
            parameter->FEnvTotalEnd = std::max(parameter->FEnvTotalEnd, s.rtEnd);
        }
        segments.push_back(s);
    }
    // Called for an enabled envelope without items as well, with a count of 0.
    params->AddEnvelope(at, static_cast<DWORD>(segments.size()), segments.data());
}

void TQMDMOFilter::AplyEnvelope(int index, TQMDMOParameter* parameter) {
    // Exclusive: the parameters keep the span they gave the object.
    TLockGuard g = Lock()->AcquireWrite();
    if (!FMediaObject || !parameter) return;
    if (ComPtr<IMediaParams> params = FMediaObject.As<IMediaParams>())
        AplyEnvelopeInt(params.Get(), index, parameter);
}

void TQMDMOFilter::AplyParams() {
    // Exclusive: the parameters keep the span they gave the object.
    TLockGuard g = Lock()->AcquireWrite();
    if (!FMediaObject) return;
    ComPtr<IMediaParams> params = FMediaObject.As<IMediaParams>();
    if (!params) return;
    AplyModeInt(params.Get());
    for (int i = 0; i < FParameters->GetCount(); ++i) {
        TQMDMOParameter* p = FParameters->GetItem(i);
        params->SetParam(static_cast<DWORD>(i), p->GetSingleValue());
        AplyEnvelopeInt(params.Get(), i, p);
    }
}

void TQMDMOFilter::DefineProperties(TFiler& filer) {
    TLockPersistent::DefineProperties(filer);
    filer.DefineProperty(
        "DMOInfo",
        [this](TReader& r) {
            r.ReadListBegin();
            const std::string classText = r.ReadString();
            const std::string name = r.ReadString();
            r.ReadListEnd();
            GUID id = GUID_NULL;
            if (!mw::GuidFromString(classText, id)) r.Error("Bad class id \"" + classText + "\"");
            TLockGuard g = Lock()->AcquireWrite();
            // Nothing is looked up: the class and the name are taken as saved.
            if (id != FDmoClassID || name != FDmoName) ReleaseObjects();
            Setters().Setter(FDmoClassID, id, {}, true);
            Setters().Setter(FDmoName, name, Notifier(), true);
            Open();
        },
        [this](TWriter& w) {
            TLockGuard g = Lock()->AcquireRead();
            w.WriteListBegin();
            w.WriteString(mw::GuidToString(FDmoClassID));
            w.WriteString(FDmoName);
            w.WriteListEnd();
        },
        !DmoName().empty());
}

void QMDMOSupport::RegisterPkg() {
    RegisterClasses(
        {TQMDMOFloatEnvelopeItem::StaticClass(), TQMDMOBooleanEnvelopeItem::StaticClass(),
         TQMDMOIntegerEnvelopeItem::StaticClass(), TQMDMOEnumEnvelopeItem::StaticClass()});
}
