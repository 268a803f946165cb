// Media objects chosen by name and their parameters as persisted, typed objects.
//
// TQMDMOFilter is a sub-object of a component. It holds one media object of a category (given
// by the owner), chosen by its display name, and reads the object's parameters into
// TQMDMOParameter objects: integer, float, bool and enum, each with an envelope of items over
// time. Every edit of a value or of an envelope is written into the object at once
// (UpdateStorage, UpdateEnvelopeStorage). The filter persists "DMOInfo" (class id and name);
// its parameters persist "FloatParameters", which may be read before the object exists: the
// values then wait in a storage list and are applied, matched by position, once an object
// with parameters is open.
//
// Threads: all setters run under the owner's lock, exclusively, since a streaming thread reads
// the values under it (SetDmoName holds it for the whole change);
// the platform calls that write parameters run on the caller's thread. The media object itself
// is safe to use from a streaming thread while parameters are written. Creating an object
// needs an initialised apartment on the calling thread (CoInitialize).
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "comptr.h"
#include "dmo.h"
#include "frame/Containers.h"
#include "frame/LockComponents.h"
#include "frame/Persistence.h"
#include "medparam.h"

// The curve of an envelope item; the platform's curve is 1 shifted left by this value.
enum TQMDMOCurveType : uint8_t { ctJump, ctLinear, ctSquare, ctInvSquare, ctSine };
// A set of curve types: bit n is curve n.
using TQMDMOCurves = uint8_t;
constexpr TQMDMOCurves kQMDMOAllCurves = 0x1F;
// The time format given to the object; stfCurrent leaves the object's own.
enum TQMDMOTimeMode : uint8_t { stfCurrent, etfMusic, etfReference, etfSamples };
// Where an envelope item starts: its start value, the value the parameter has, or the
// parameter's default. Persisted by these names.
enum TQMDMOEnvilopeStartMode : uint8_t { esmStartValue, semCurrentValue, semDefaultValue };

class TQMDMOFilter;
class TQMDMOParameters;
class TQMDMOParameter;
class TQMDMOBasicParameterEnvelope;
class TQMDMOBasicEnvelopeItems;
class TQMDMOBasicEnvelopeItem;

// ---- Envelope items

// The start of an item: its mode and, in the descendants, its value.
class TQMDMOBasicEnvelopeStartValue : public TLockPersistent {
    MW_CLASS(TQMDMOBasicEnvelopeStartValue, TLockPersistent)
public:
    TQMDMOBasicEnvelopeStartValue(TQMDMOBasicEnvelopeItem* ownerItem, IChangeNotifyLock* lock);
    TQMDMOEnvilopeStartMode StartMode() const;
    void SetStartMode(TQMDMOEnvilopeStartMode value);
    virtual float GetSingleStartValue() const = 0;
    virtual void SetSingleStartValue(float value) = 0;
    static void Publish(TPropertyList& p);

protected:
    TQMDMOBasicEnvelopeItem* FOwnerItem;

private:
    TQMDMOEnvilopeStartMode FStartMode = esmStartValue;
};

class TQMDMOFloatEnvelopeStartValue : public TQMDMOBasicEnvelopeStartValue {
    MW_CLASS(TQMDMOFloatEnvelopeStartValue, TQMDMOBasicEnvelopeStartValue)
public:
    using TQMDMOBasicEnvelopeStartValue::TQMDMOBasicEnvelopeStartValue;
    float StartValue() const;
    void SetStartValue(float value);
    float GetSingleStartValue() const override { return StartValue(); }
    void SetSingleStartValue(float value) override { SetStartValue(value); }
    static void Publish(TPropertyList& p);

private:
    float FStartValue = 0;
};

class TQMDMOIntegerEnvelopeStartValue : public TQMDMOBasicEnvelopeStartValue {
    MW_CLASS(TQMDMOIntegerEnvelopeStartValue, TQMDMOBasicEnvelopeStartValue)
public:
    using TQMDMOBasicEnvelopeStartValue::TQMDMOBasicEnvelopeStartValue;
    int32_t StartValue() const;
    void SetStartValue(int32_t value);
    float GetSingleStartValue() const override { return static_cast<float>(StartValue()); }
    void SetSingleStartValue(float value) override;
    static void Publish(TPropertyList& p);

private:
    int32_t FStartValue = 0;
};

class TQMDMOEnumEnvelopeStartValue : public TQMDMOIntegerEnvelopeStartValue {
    MW_CLASS(TQMDMOEnumEnvelopeStartValue, TQMDMOIntegerEnvelopeStartValue)
public:
    using TQMDMOIntegerEnvelopeStartValue::TQMDMOIntegerEnvelopeStartValue;
};

class TQMDMOBooleanEnvelopeStartValue : public TQMDMOBasicEnvelopeStartValue {
    MW_CLASS(TQMDMOBooleanEnvelopeStartValue, TQMDMOBasicEnvelopeStartValue)
public:
    using TQMDMOBasicEnvelopeStartValue::TQMDMOBasicEnvelopeStartValue;
    bool StartValue() const;
    void SetStartValue(bool value);
    float GetSingleStartValue() const override { return StartValue() ? 1.0f : 0.0f; }
    void SetSingleStartValue(float value) override { SetStartValue(value != 0); }
    static void Publish(TPropertyList& p);

private:
    bool FStartValue = false;
};

// One segment of an envelope: from StartTime for Length (100 ns units, or the units of the
// filter's time format), along CurveType, from its start value to its end value.
class TQMDMOBasicEnvelopeItem : public TLockCollectionItem {
    MW_CLASS(TQMDMOBasicEnvelopeItem, TLockCollectionItem)
public:
    explicit TQMDMOBasicEnvelopeItem(TCollection* collection);

    int64_t StartTime() const;
    void SetStartTime(int64_t value);
    int64_t Length() const;
    void SetLength(int64_t value);
    TQMDMOCurveType CurveType() const;
    // Takes only curves that the collection's FAvailableCurves holds; others are dropped.
    void SetCurveType(TQMDMOCurveType value);

    // The values as the platform takes them.
    virtual float GetStartValue() const = 0;
    virtual float GetEndValue() const = 0;
    virtual TQMDMOEnvilopeStartMode GetStartMode() const = 0;
    virtual void SetSingleStartValue(float value) = 0;
    virtual void SetSingleEndValue(float value) = 0;
    virtual void SetStartMode(TQMDMOEnvilopeStartMode value) = 0;

    // "StartTime (start value - end value)".
    std::string GetDisplayName() const override;
    static void Publish(TPropertyList& p);

private:
    int64_t FStartTime = 0;
    int64_t FLength = 10000000;
    TQMDMOCurveType FCurveType = ctJump;
};

// An item with a start value object of class S and an end value of type V.
template <class S, class V>
class TQMDMOEnvelopeItemOf : public TQMDMOBasicEnvelopeItem {
    MW_CLASS(TQMDMOEnvelopeItemOf, TQMDMOBasicEnvelopeItem)
public:
    explicit TQMDMOEnvelopeItemOf(TCollection* collection)
        : TQMDMOBasicEnvelopeItem(collection), FStartValue(new S(this, Lock())) {}

    S* StartValue() const { return FStartValue.get(); }
    V EndValue() const {
        TLockGuard g = Lock()->AcquireRead();
        return FEndValue;
    }
    void SetEndValue(V value) { Setters().Setter(FEndValue, value, Notifier(), true); }

    float GetStartValue() const override { return FStartValue->GetSingleStartValue(); }
    float GetEndValue() const override { return static_cast<float>(EndValue()); }
    TQMDMOEnvilopeStartMode GetStartMode() const override { return FStartValue->StartMode(); }
    void SetSingleStartValue(float value) override { FStartValue->SetSingleStartValue(value); }
    void SetStartMode(TQMDMOEnvilopeStartMode value) override { FStartValue->SetStartMode(value); }

    static void Publish(TPropertyList& p) {
        p.AddObject<TQMDMOEnvelopeItemOf>("StartValue", &TQMDMOEnvelopeItemOf::StartValue);
        p.Add<TQMDMOEnvelopeItemOf>("EndValue", &TQMDMOEnvelopeItemOf::EndValue,
                                    &TQMDMOEnvelopeItemOf::SetEndValue, V{});
    }

private:
    TOwned<S> FStartValue;
    V FEndValue{};
};

using TQMDMOFloatEnvelopeItemBase = TQMDMOEnvelopeItemOf<TQMDMOFloatEnvelopeStartValue, float>;
using TQMDMOBooleanEnvelopeItemBase = TQMDMOEnvelopeItemOf<TQMDMOBooleanEnvelopeStartValue, bool>;
using TQMDMOIntegerEnvelopeItemBase =
    TQMDMOEnvelopeItemOf<TQMDMOIntegerEnvelopeStartValue, int32_t>;

class TQMDMOFloatEnvelopeItem : public TQMDMOFloatEnvelopeItemBase {
    MW_CLASS(TQMDMOFloatEnvelopeItem, TQMDMOFloatEnvelopeItemBase)
public:
    using OwnerType = TCollection;
    using TQMDMOEnvelopeItemOf::TQMDMOEnvelopeItemOf;
    void SetSingleEndValue(float value) override { SetEndValue(value); }
};

class TQMDMOBooleanEnvelopeItem : public TQMDMOBooleanEnvelopeItemBase {
    MW_CLASS(TQMDMOBooleanEnvelopeItem, TQMDMOBooleanEnvelopeItemBase)
public:
    using OwnerType = TCollection;
    using TQMDMOEnvelopeItemOf::TQMDMOEnvelopeItemOf;
    float GetEndValue() const override { return EndValue() ? 1.0f : 0.0f; }
    void SetSingleEndValue(float value) override { SetEndValue(value != 0); }
};

// The integer end value shared by the integer and enum items.
class TQMDMOBasicIntegerEnvelopeItem : public TQMDMOIntegerEnvelopeItemBase {
    MW_CLASS(TQMDMOBasicIntegerEnvelopeItem, TQMDMOIntegerEnvelopeItemBase)
public:
    using TQMDMOEnvelopeItemOf::TQMDMOEnvelopeItemOf;
    void SetSingleEndValue(float value) override;
};

class TQMDMOIntegerEnvelopeItem : public TQMDMOBasicIntegerEnvelopeItem {
    MW_CLASS(TQMDMOIntegerEnvelopeItem, TQMDMOBasicIntegerEnvelopeItem)
public:
    using OwnerType = TCollection;
    using TQMDMOBasicIntegerEnvelopeItem::TQMDMOBasicIntegerEnvelopeItem;
};

class TQMDMOEnumEnvelopeItem : public TQMDMOBasicIntegerEnvelopeItem {
    MW_CLASS(TQMDMOEnumEnvelopeItem, TQMDMOBasicIntegerEnvelopeItem)
public:
    using OwnerType = TCollection;
    using TQMDMOBasicIntegerEnvelopeItem::TQMDMOBasicIntegerEnvelopeItem;
};

// The items of one envelope, in time order as the user gives them.
class TQMDMOBasicEnvelopeItems : public TLockCollection {
    MW_CLASS(TQMDMOBasicEnvelopeItems, TLockCollection)
public:
    TQMDMOBasicEnvelopeItems(TQMDMOBasicParameterEnvelope* owner, IChangeNotifyLock* lock,
                             TCollectionItemClass itemClass, TQMDMOCurves availableCurves);
    TQMDMOBasicEnvelopeItem* GetItem(int index) const;
    TQMDMOBasicEnvelopeItem* Add();
    TQMDMOCurves AvailableCurves() const { return FAvailableCurves; }
    TQMDMOBasicParameterEnvelope* ItemOwner() const { return FItemOwner; }
    // A new item starts where the one before it ends.
    void NewItemCreated(TCollectionItem* item) override;

private:
    TQMDMOCurves FAvailableCurves;
    TQMDMOBasicParameterEnvelope* FItemOwner;
};

// ---- Envelopes

class TQMDMOBasicParameterEnvelope : public TLockPersistent {
    MW_CLASS(TQMDMOBasicParameterEnvelope, TLockPersistent)
public:
    TQMDMOBasicParameterEnvelope(TQMDMOParameter* ownerParameter, IChangeNotifyLock* lock);
    bool Enabled() const;
    void SetEnabled(bool value);
    TQMDMOParameter* OwnerParameter() const { return FOwnerParameter; }
    virtual TQMDMOBasicEnvelopeItems* GetEnvelopes() const = 0;
    static void Publish(TPropertyList& p);

protected:
    TQMDMOParameter* FOwnerParameter;

private:
    bool FEnabled = false;
};

template <class Item>
class TQMDMOParameterEnvelopeOf : public TQMDMOBasicParameterEnvelope {
    MW_CLASS(TQMDMOParameterEnvelopeOf, TQMDMOBasicParameterEnvelope)
public:
    TQMDMOParameterEnvelopeOf(TQMDMOParameter* ownerParameter, IChangeNotifyLock* lock,
                              TQMDMOCurves curves)
        : TQMDMOBasicParameterEnvelope(ownerParameter, lock),
          FEnvelopes(new TQMDMOBasicEnvelopeItems(this, lock, Item::StaticClass(), curves)) {}
    TQMDMOBasicEnvelopeItems* GetEnvelopes() const override { return FEnvelopes.get(); }
    TQMDMOBasicEnvelopeItems* Envelopes() const { return FEnvelopes.get(); }
    static void Publish(TPropertyList& p) {
        p.AddObject<TQMDMOParameterEnvelopeOf>("Envelopes", &TQMDMOParameterEnvelopeOf::Envelopes);
    }

private:
    TOwned<TQMDMOBasicEnvelopeItems> FEnvelopes;
};

class TQMDMOFloatParameterEnvelope : public TQMDMOParameterEnvelopeOf<TQMDMOFloatEnvelopeItem> {
    MW_CLASS(TQMDMOFloatParameterEnvelope, TQMDMOParameterEnvelopeOf<TQMDMOFloatEnvelopeItem>)
public:
    using TQMDMOParameterEnvelopeOf::TQMDMOParameterEnvelopeOf;
};

class TQMDMOIntegerParameterEnvelope : public TQMDMOParameterEnvelopeOf<TQMDMOIntegerEnvelopeItem> {
    MW_CLASS(TQMDMOIntegerParameterEnvelope, TQMDMOParameterEnvelopeOf<TQMDMOIntegerEnvelopeItem>)
public:
    using TQMDMOParameterEnvelopeOf::TQMDMOParameterEnvelopeOf;
};

class TQMDMOBooleanParameterEnvelope : public TQMDMOParameterEnvelopeOf<TQMDMOBooleanEnvelopeItem> {
    MW_CLASS(TQMDMOBooleanParameterEnvelope, TQMDMOParameterEnvelopeOf<TQMDMOBooleanEnvelopeItem>)
public:
    using TQMDMOParameterEnvelopeOf::TQMDMOParameterEnvelopeOf;
};

class TQMDMOEnumParameter;
class TQMDMOEnumParameterEnvelope : public TQMDMOParameterEnvelopeOf<TQMDMOEnumEnvelopeItem> {
    MW_CLASS(TQMDMOEnumParameterEnvelope, TQMDMOParameterEnvelopeOf<TQMDMOEnumEnvelopeItem>)
public:
    TQMDMOEnumParameterEnvelope(TQMDMOEnumParameter* owner, IChangeNotifyLock* lock,
                                TQMDMOCurves curves);
    TQMDMOEnumParameter* Owner() const { return FOwner; }

private:
    TQMDMOEnumParameter* FOwner;
};

// ---- Parameters

// One parameter of the open object. Every kind keeps its value in the float FValue.
class TQMDMOParameter : public TLockPersistent {
    MW_CLASS(TQMDMOParameter, TLockPersistent)
public:
    // From the platform's description and the value read from the object.
    TQMDMOParameter(TQMDMOParameters* owner, IChangeNotifyLock* lock, const MP_PARAMINFO& info,
                    float value);
    // Without an owner or a description: a parameter read from persisted data.
    explicit TQMDMOParameter(IChangeNotifyLock* lock);

    virtual void SetSingleValue(float value);
    virtual float GetSingleValue() const;
    // Sets the value from text, as the kind of parameter reads text.
    virtual void SetStringValue(const std::string& text) = 0;
    virtual TQMDMOBasicParameterEnvelope* GetEnvelope() const = 0;
    // Takes over Enabled and the items of another envelope, of any kind.
    virtual void SetEnvelope(const TQMDMOBasicParameterEnvelope* envelope);
    TQMDMOBasicEnvelopeItems* GetEnvelopes() const { return GetEnvelope()->GetEnvelopes(); }
    virtual std::string GetDisplayValue() const;

    const std::string& Name() const { return FName; }
    const std::string& ValueUnit() const { return FValueUnit; }
    float Min() const { return FMin; }
    float Max() const { return FMax; }
    float DefaultValue() const { return FDefaultValue; }
    TQMDMOParameters* ParamOwner() const { return FParamOwner; }
    // The span of the envelope given to the object last, for FlushEnvelope.
    bool EnvelopeFilled() const { return FEnvelopeFilled; }
    int64_t EnvTotalStart() const { return FEnvTotalStart; }
    int64_t EnvTotalEnd() const { return FEnvTotalEnd; }
    void* CurrentEditorPtr() const { return FCurrentEditorPtr; }
    void SetCurrentEditorPtr(void* p) { FCurrentEditorPtr = p; }

protected:
    friend class TQMDMOFilter;
    friend class TQMDMOParameters;
    // The change closure of value setters: the object hears of the change.
    TChangeClosure ValueChanged();
    // The curves the object takes for this parameter.
    TQMDMOCurves CurvesOf(const MP_PARAMINFO& info) const;

    TQMDMOParameters* FParamOwner = nullptr;
    std::string FName;
    std::string FValueUnit;
    float FValue = 0;
    float FMin = 0;
    float FMax = 0;
    float FDefaultValue = 0;
    bool FEnvelopeFilled = false;
    int64_t FEnvTotalStart = 0;
    int64_t FEnvTotalEnd = 0;
    void* FCurrentEditorPtr = nullptr;
};

class TQMDMOBasicIntegerParameter : public TQMDMOParameter {
    MW_CLASS(TQMDMOBasicIntegerParameter, TQMDMOParameter)
public:
    using TQMDMOParameter::TQMDMOParameter;
    int32_t Value() const;
    // Clamped to Min..Max.
    void SetValue(int32_t value);
    int32_t IntMin() const { return static_cast<int32_t>(std::lround(FMin)); }
    int32_t IntMax() const { return static_cast<int32_t>(std::lround(FMax)); }
    int32_t IntDefaultValue() const { return static_cast<int32_t>(std::lround(FDefaultValue)); }
    void SetStringValue(const std::string& text) override;
    std::string GetDisplayValue() const override;
};

class TQMDMOIntegerParameter : public TQMDMOBasicIntegerParameter {
    MW_CLASS(TQMDMOIntegerParameter, TQMDMOBasicIntegerParameter)
public:
    TQMDMOIntegerParameter(TQMDMOParameters* owner, IChangeNotifyLock* lock,
                           const MP_PARAMINFO& info, float value);
    TQMDMOBasicParameterEnvelope* GetEnvelope() const override { return FEnvelope.get(); }
    TQMDMOIntegerParameterEnvelope* Envelope() const { return FEnvelope.get(); }

private:
    TOwned<TQMDMOIntegerParameterEnvelope> FEnvelope;
};

class TQMDMOFloatParameter : public TQMDMOParameter {
    MW_CLASS(TQMDMOFloatParameter, TQMDMOParameter)
public:
    TQMDMOFloatParameter(TQMDMOParameters* owner, IChangeNotifyLock* lock, const MP_PARAMINFO& info,
                         float value);
    // For loading: a parameter of no object, with all curves.
    explicit TQMDMOFloatParameter(IChangeNotifyLock* lock);
    float Value() const { return GetSingleValue(); }
    // Clamped to Min..Max.
    void SetValue(float value);
    void SetStringValue(const std::string& text) override;
    TQMDMOBasicParameterEnvelope* GetEnvelope() const override { return FEnvelope.get(); }
    TQMDMOFloatParameterEnvelope* Envelope() const { return FEnvelope.get(); }

private:
    TOwned<TQMDMOFloatParameterEnvelope> FEnvelope;
};

class TQMDMOBoolParameter : public TQMDMOParameter {
    MW_CLASS(TQMDMOBoolParameter, TQMDMOParameter)
public:
    TQMDMOBoolParameter(TQMDMOParameters* owner, IChangeNotifyLock* lock, const MP_PARAMINFO& info,
                        float value);
    bool Value() const { return GetSingleValue() != 0; }
    void SetValue(bool value) { SetSingleValue(value ? 1.0f : 0.0f); }
    // "TRUE" or "FALSE" in any case; any other text leaves the value. The object is written
    // in every case.
    void SetStringValue(const std::string& text) override;
    std::string GetDisplayValue() const override;
    TQMDMOBasicParameterEnvelope* GetEnvelope() const override { return FEnvelope.get(); }
    TQMDMOBooleanParameterEnvelope* Envelope() const { return FEnvelope.get(); }

private:
    TOwned<TQMDMOBooleanParameterEnvelope> FEnvelope;
};

class TQMDMOEnumParameter : public TQMDMOBasicIntegerParameter {
    MW_CLASS(TQMDMOEnumParameter, TQMDMOBasicIntegerParameter)
public:
    // Reads the texts of the values from the object's parameter text.
    TQMDMOEnumParameter(TQMDMOParameters* owner, IChangeNotifyLock* lock, const MP_PARAMINFO& info,
                        float value, IMediaParamInfo* paramInfo, DWORD index);
    const std::vector<std::string>& EnumValues() const { return FEnumValues; }
    // The value whose text matches, trimmed and in any case; an unknown text does nothing.
    void SetStringValue(const std::string& text) override;
    std::string GetDisplayValue() const override;
    TQMDMOBasicParameterEnvelope* GetEnvelope() const override { return FEnvelope.get(); }
    TQMDMOEnumParameterEnvelope* Envelope() const { return FEnvelope.get(); }

private:
    TOwned<TQMDMOEnumParameterEnvelope> FEnvelope;
    std::vector<std::string> FEnumValues;
};

// The parameters of the open object, and those read from persisted data that wait for one.
class TQMDMOParameters : public TLockPersistent {
    MW_CLASS(TQMDMOParameters, TLockPersistent)
public:
    TQMDMOParameters(TQMDMOFilter* filter, IChangeNotifyLock* lock);
    ~TQMDMOParameters() override;

    TQMDMOParameter* GetItem(int index) const;
    int GetCount() const;
    // Drops the parameters of the object (not those waiting in the storage).
    void Clear();
    void Add(TQMDMOParameter* parameter);
    // Reads the parameters of the object, then applies stored values.
    void FillParams(IMediaObject* object);
    // Keeps the value in the storage entry of the same position and writes it to the object.
    void UpdateStorage(TQMDMOParameter* parameter);
    void UpdateEnvelopeStorage(TQMDMOParameter* parameter);
    // Applies the stored values, matched by position, once an object with parameters is open.
    void TryApplyValues();
    // Parameters read from persisted data and not applied yet.
    int StorageCount() const;
    TQMDMOParameter* GetStorageItem(int index) const;
    TQMDMOFilter* Filter() const { return FFilter; }

    void DefineProperties(TFiler& filer) override;

private:
    void ReadData(TReader& reader);
    void WriteData(TWriter& writer) const;
    int IndexOf(const TQMDMOParameter* parameter) const;

    TQMDMOFilter* FFilter;
    int32_t FLastIndicatedCount = 0;
    std::vector<TOwned<TQMDMOParameter>> FItems;
    std::vector<TOwned<TQMDMOParameter>> FStorage;
    bool FInLoading = false;
};

// The time format in which envelope times are given to the object.
class TQMDMOEnvelopeTimeFormat : public TLockPersistent {
    MW_CLASS(TQMDMOEnvelopeTimeFormat, TLockPersistent)
public:
    TQMDMOEnvelopeTimeFormat(TQMDMOFilter* ownerFilter, IChangeNotifyLock* lock);
    TQMDMOTimeMode Mode() const;
    void SetMode(TQMDMOTimeMode value);
    uint32_t Units() const;
    void SetUnits(uint32_t value);
    static void Publish(TPropertyList& p);

private:
    TQMDMOFilter* FOwnerFilter;
    TQMDMOTimeMode FMode = stfCurrent;
    uint32_t FUnits = 0;
};

class TQMDMOFilter : public TLockPersistent {
    MW_CLASS(TQMDMOFilter, TLockPersistent)
public:
    TQMDMOFilter(TPersistent* owner, IChangeNotifyLock* lock, const GUID& category);
    ~TQMDMOFilter() override;

    // True when an object is open, creating it and reading its parameters when needed.
    bool Open();
    // The object, created on demand; empty when no class is set or it can't be created.
    ComPtr<IMediaObject> GetMediaObject();
    // The object with one reference added for the caller to release; null if none.
    IMediaObject* GetVC_MediaObject();
    // The open object and its in-place side, without creating one (null when closed).
    ComPtr<IMediaObject> GetOpenObject() const;
    ComPtr<IMediaObjectInPlace> GetObjectInPlace() const;
    // The latency of the object in 100 ns units; 0 when it can't be opened.
    int64_t GetLatency();
    // The display names of the category, in the platform's order.
    std::vector<std::string> GetDmoNames() const;
    void GetDmoNames(IStringArrayList* list) const;
    std::string DmoName() const;
    GUID DmoClassID() const;
    const GUID& Category() const { return FguidCategory; }
    // Chooses an object by its display name; a name that isn't found leaves no object.
    void SetDmoName(const std::string& name);

    // There is no dialog on this platform: the choice is made by the handler installed with
    // SetDmoSelectHandler, which gets the title "DMO Filters", the names and the current name.
    // True when a name was taken; false, with nothing changed, without a handler or when it
    // declined. fullScreen is for a handler that shows a window.
    bool ShowDmoSelectDialog(bool fullScreen);
    using TDmoSelectHandler =
        std::function<bool(const std::string& title, const std::vector<std::string>& names,
                           std::string& selected, bool fullScreen)>;
    static void SetDmoSelectHandler(TDmoSelectHandler handler);

    // Writing into the object (names spelled as the system has always spelled them).
    void AplyMode();
    void AplyParam(int index, TQMDMOParameter* parameter);
    void AplyEnvelope(int index, TQMDMOParameter* parameter);
    void AplyParams();
    void ReleaseObjects();

    TQMDMOParameters* Parameters() const { return FParameters.get(); }
    TQMDMOEnvelopeTimeFormat* TimeFormat() const { return FTimeFormat.get(); }

    void DefineProperties(TFiler& filer) override;
    static void Publish(TPropertyList& p);

private:
    GUID ClassIdFromName(const std::string& name) const;
    void AplyModeInt(IMediaParams* params);
    void AplyEnvelopeInt(IMediaParams* params, int index, TQMDMOParameter* parameter);

    ComPtr<IMediaObject> FMediaObject;
    ComPtr<IMediaObjectInPlace> FObjectInPlace;
    GUID FDmoClassID = GUID_NULL;
    std::string FDmoName;
    TOwned<TQMDMOParameters> FParameters;
    GUID FguidCategory;
    TOwned<TQMDMOEnvelopeTimeFormat> FTimeFormat;
};

namespace QMDMOSupport {
// Makes the persisted classes of the unit known to form files.
void RegisterPkg();
}  // namespace QMDMOSupport
