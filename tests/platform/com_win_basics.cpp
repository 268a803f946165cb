// The Win32 basics of this issue: the global heap, the process id, the in-process library
// loader, and the UTF-8/UTF-16 helper.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <thread>
#include <vector>

#include "mwstring.h"
#include "winbase.h"
#include "winmem.h"

namespace {

TEST(GlobalMemory, FixedBlockHandleIsItsAddress) {
    HGLOBAL h = GlobalAlloc(GPTR, 40);
    ASSERT_NE(h, nullptr);
    void* p = GlobalLock(h);
    EXPECT_EQ(p, h);
    EXPECT_EQ(static_cast<char*>(p)[39], 0) << "GMEM_ZEROINIT";
    EXPECT_EQ(GlobalSize(h), 40u);
    EXPECT_EQ(GlobalUnlock(h), FALSE);
    EXPECT_EQ(GlobalHandle(p), h);
    EXPECT_EQ(GlobalFree(h), nullptr);
}

TEST(GlobalMemory, MoveableBlockCountsLocksAndResizes) {
    HGLOBAL h = GlobalAlloc(GHND, 24);
    ASSERT_NE(h, nullptr);
    auto* p = static_cast<char*>(GlobalLock(h));
    ASSERT_NE(p, nullptr);
    EXPECT_NE(static_cast<void*>(p), h);
    std::memcpy(p, "clock advise record", 20);
    EXPECT_EQ(GlobalLock(h), p);
    EXPECT_EQ(GlobalFlags(h), 2u);
    EXPECT_EQ(GlobalHandle(p), h);
    EXPECT_EQ(GlobalReAlloc(h, 100, 0), nullptr) << "locked";
    EXPECT_EQ(GlobalUnlock(h), TRUE);
    EXPECT_EQ(GlobalUnlock(h), FALSE);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(GlobalUnlock(h), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_NOT_LOCKED);
    EXPECT_EQ(GlobalReAlloc(h, 100, GMEM_ZEROINIT), h);
    EXPECT_EQ(GlobalSize(h), 100u);
    p = static_cast<char*>(GlobalLock(h));
    EXPECT_STREQ(p, "clock advise record");
    EXPECT_EQ(p[99], 0);
    GlobalUnlock(h);
    EXPECT_EQ(GlobalFree(h), nullptr);
}

TEST(GlobalMemory, BadHandlesFailWithoutHarm) {
    HGLOBAL bogus = reinterpret_cast<HGLOBAL>(static_cast<uintptr_t>(0x1234));
    EXPECT_EQ(GlobalLock(bogus), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(GlobalUnlock(bogus), FALSE);
    EXPECT_EQ(GlobalSize(bogus), 0u);
    EXPECT_EQ(GlobalFlags(bogus), GMEM_INVALID_HANDLE);
    EXPECT_EQ(GlobalFree(bogus), bogus);
    EXPECT_EQ(GlobalReAlloc(bogus, 10, 0), nullptr);
    HGLOBAL h = GlobalAlloc(GMEM_FIXED, 8);
    EXPECT_EQ(GlobalFree(h), nullptr);
    EXPECT_EQ(GlobalFree(h), h) << "a freed handle is a bad handle";
    EXPECT_EQ(GlobalAlloc(0x80000, 8), nullptr) << "unknown flags";
}

TEST(GlobalMemory, BlocksAreFreedOnOtherThreads) {
    std::vector<HGLOBAL> blocks;
    for (int i = 0; i < 100; ++i)
        blocks.push_back(GlobalAlloc(GMEM_FIXED, 40 + i));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (size_t i = t; i < blocks.size(); i += 4) {
                std::memset(GlobalLock(blocks[i]), t, 40);
                GlobalUnlock(blocks[i]);
                EXPECT_EQ(GlobalFree(blocks[i]), nullptr);
            }
            for (int i = 0; i < 100; ++i)
                GlobalFree(GlobalAlloc(GHND, 64));
        });
    }
    for (auto& th : threads)
        th.join();
}

TEST(Process, IdIsTheKernelsAndThePseudoHandleIsMinusOne) {
    EXPECT_EQ(GetCurrentProcessId(), static_cast<DWORD>(getpid()));
    EXPECT_EQ(GetCurrentProcess(), INVALID_HANDLE_VALUE);
}

HRESULT WINAPI FakeCreateProfileManager(void** out) {
    *out = nullptr;
    return S_OK;
}

TEST(Loader, RegisteredLibraryAnswersItsEntryPoints) {
    mw::RegisterLibraryExport(u"mwtestcore.dll", "WMCreateProfileManager",
                              mw::AsFarProc(&FakeCreateProfileManager));
    HMODULE h = SafeLoadLibrary(u"MWTestCore.DLL");
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(LoadLibraryA("c:\\windows\\system32\\mwtestcore"), h);
    EXPECT_EQ(GetModuleHandleW(u"mwtestcore.dll"), h);
    auto fn = mw::FromFarProc<HRESULT WINAPI(void**)>(GetProcAddress(h, "WMCreateProfileManager"));
    ASSERT_NE(fn, nullptr);
    void* out = &out;
    EXPECT_EQ(fn(&out), S_OK);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(GetProcAddress(h, "WMCreateWriter"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(GetProcAddress(h, nullptr), nullptr);
    EXPECT_EQ(FreeLibrary(h), TRUE);
    EXPECT_EQ(FreeLibrary(h), TRUE);
    EXPECT_EQ(FreeLibrary(h), FALSE);
    EXPECT_EQ(GetProcAddress(h, "WMCreateProfileManager") != nullptr, true) << "stays mapped";
}

TEST(Loader, UnknownLibrariesAndHandlesFailAsOnThePlatform) {
    const UINT before = GetErrorMode();
    EXPECT_EQ(SafeLoadLibrary(u"nosuchlibrary.dll"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(GetErrorMode(), before) << "SafeLoadLibrary restores the error mode";
    EXPECT_EQ(LoadLibraryW(nullptr), nullptr);
    HMODULE bogus = reinterpret_cast<HMODULE>(static_cast<uintptr_t>(0x4321));
    EXPECT_EQ(GetProcAddress(bogus, "WMCreateWriter"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(FreeLibrary(bogus), FALSE);
}

TEST(Strings, ConvertBetweenUtf8AndUtf16) {
    EXPECT_EQ(mw::Utf8ToUtf16("ActiveMovieGraph"), u"ActiveMovieGraph");
    EXPECT_EQ(mw::Utf8ToUtf16("K\xC3\xB6ln \xE2\x82\xAC \xF0\x9F\x8E\xB5"),
              u"K\u00F6ln \u20AC \U0001F3B5");
    EXPECT_EQ(mw::Utf16ToUtf8(u"K\u00F6ln \u20AC \U0001F3B5"),
              "K\xC3\xB6ln \xE2\x82\xAC \xF0\x9F\x8E\xB5");
    EXPECT_EQ(mw::Utf8ToUtf16("a\xFF"
                              "b"),
              u"a\uFFFDb");
    EXPECT_EQ(mw::Utf8ToUtf16("a\xE2\x82"), u"a\uFFFD");
    EXPECT_EQ(mw::Utf8ToUtf16("\xC0\xAF"), u"\uFFFD") << "overlong";
    EXPECT_EQ(mw::Utf8ToUtf16("\xE2(x"), u"\uFFFD(x");
    const char16_t lone[] = {u'a', 0xD800, u'b', 0};
    EXPECT_EQ(mw::Utf16ToUtf8(lone),
              "a\xEF\xBF\xBD"
              "b");
    EXPECT_EQ(mw::Utf16ToUtf8(static_cast<const WCHAR*>(nullptr)), "");
    EXPECT_EQ(mw::U16Len(u"pid"), 3u);
    EXPECT_EQ(mw::U16Len(nullptr), 0u);
    EXPECT_TRUE(mw::U16EqualNoCase(u"@Device:CM:", u"@device:cm:"));
    EXPECT_FALSE(mw::U16EqualNoCase(u"ab", u"abc"));
}

}  // namespace
