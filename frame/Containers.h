// Ordinary ordered containers of the component frame: TArrayList<T>, the read-only object
// list and the reference-counted string list that can be handed around. None is thread-safe
// by itself: owners guard them with their own section.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "frame/Interfaced.h"

template <class T>
class TArrayList {
public:
    int Add(const T& item) {
        FItems.push_back(item);
        return static_cast<int>(FItems.size()) - 1;
    }
    void Insert(int index, const T& item) { FItems.insert(FItems.begin() + index, item); }
    int Count() const { return static_cast<int>(FItems.size()); }
    const T& operator[](int index) const { return FItems.at(index); }
    T& operator[](int index) { return FItems.at(index); }
    int IndexOf(const T& item) const {
        auto it = std::find(FItems.begin(), FItems.end(), item);
        return it == FItems.end() ? -1 : static_cast<int>(it - FItems.begin());
    }
    bool Remove(const T& item) {
        int i = IndexOf(item);
        if (i < 0) return false;
        Delete(i);
        return true;
    }
    void Delete(int index) { FItems.erase(FItems.begin() + index); }
    void Clear() { FItems.clear(); }
    // A copy of the items, in order or reversed.
    std::vector<T> Query(bool reverse = false) const {
        std::vector<T> r = FItems;
        if (reverse) std::reverse(r.begin(), r.end());
        return r;
    }
    auto begin() const { return FItems.begin(); }
    auto end() const { return FItems.end(); }
    auto rbegin() const { return FItems.rbegin(); }
    auto rend() const { return FItems.rend(); }

private:
    std::vector<T> FItems;
};

// A list that hands out its items but lets only its owner change it.
template <class T>
class TQPReadOnlyObjectList {
public:
    int Count() const { return FList.Count(); }
    T* operator[](int index) const { return FList[index]; }
    auto begin() const { return FList.begin(); }
    auto end() const { return FList.end(); }
    auto rbegin() const { return FList.rbegin(); }
    auto rend() const { return FList.rend(); }
    std::vector<T*> Query(bool reverse = false) const { return FList.Query(reverse); }

protected:
    TArrayList<T*> FList;
};

struct IStringArrayList : IUnknown {
    virtual int Add(const std::string& s) = 0;
    virtual int Count() const = 0;
    virtual std::string Get(int index) const = 0;
    virtual void Clear() = 0;
};
DEFINE_GUID(IID_IStringArrayList, 0x8c3f2a10, 0x61d4, 0x4e8b, 0xa7, 0x2c, 0x15, 0x93, 0xee, 0x40,
            0x6b, 0x72);
MW_DECLARE_IID(IStringArrayList, IID_IStringArrayList);

class TStringArrayList : public TInterfacedObject<IStringArrayList> {
    MW_CLASS(TStringArrayList, TInterfacedObject<IStringArrayList>)
public:
    int Add(const std::string& s) override { return FList.Add(s); }
    int Count() const override { return FList.Count(); }
    std::string Get(int index) const override { return FList[index]; }
    void Clear() override { FList.Clear(); }
    auto begin() const { return FList.begin(); }
    auto end() const { return FList.end(); }

private:
    TArrayList<std::string> FList;
};
