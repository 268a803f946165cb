// Compound files through StgCreateDocfile/StgOpenStorage, read back by libgsf's reader and by
// Python's olefile; streams over global memory.
#include <gtest/gtest.h>

#include "mwstring.h"
#include "objbase.h"
#include "winmem.h"

#include <dirent.h>
#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-stdio.h>
#include <gsf/gsf-utils.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "comptr.h"

namespace {

constexpr DWORD kGraphFileMode = 0x11012;   // create, transacted, read-write, exclusive
constexpr DWORD kGraphStreamMode = 0x1011;  // create, write, exclusive
constexpr CLSID kRootClass = {0x6d77c0a4, 0x4444, 0x4a6b, {0x9c, 0, 0, 0, 0, 0, 0, 4}};

class TempDir {
public:
    TempDir() {
        char tmpl[] = "/tmp/mw-storage-XXXXXX";
        path_ = ::mkdtemp(tmpl);
    }
    ~TempDir() { std::system(("rm -rf '" + path_ + "'").c_str()); }
    std::string File(const std::string& name) const { return path_ + "/" + name; }
    std::vector<std::string> Entries() const {
        std::vector<std::string> out;
        if (DIR* d = ::opendir(path_.c_str())) {
            while (dirent* e = ::readdir(d))
                if (std::string(e->d_name) != "." && std::string(e->d_name) != "..")
                    out.push_back(e->d_name);
            ::closedir(d);
        }
        return out;
    }

private:
    std::string path_;
};

std::vector<uint8_t> GraphBytes() {
    std::vector<uint8_t> bytes;
    for (int i = 0; i < 5000; ++i)
        bytes.push_back(static_cast<uint8_t>(i * 7 + 3));  // spans big blocks
    return bytes;
}

std::string Hex(const std::vector<uint8_t>& bytes) {
    static const char* digits = "0123456789abcdef";
    std::string s;
    for (uint8_t b : bytes) {
        s.push_back(digits[b >> 4]);
        s.push_back(digits[b & 15]);
    }
    return s;
}

// Writes the graph file as a graph's SaveToFile does.
HRESULT SaveGraphFile(const std::string& path, const std::vector<uint8_t>& content) {
    ComPtr<IStorage> storage;
    HRESULT hr = StgCreateDocfile(mw::Utf8ToUtf16(path).c_str(), kGraphFileMode, 0,
                                  storage.ReleaseAndGetAddressOf());
    if (FAILED(hr)) return hr;
    ComPtr<IStream> stream;
    hr = storage->CreateStream(u"ActiveMovieGraph", kGraphStreamMode, 0, 0,
                               stream.ReleaseAndGetAddressOf());
    if (FAILED(hr)) return hr;
    ULONG written = 0;
    hr = stream->Write(content.data(), static_cast<ULONG>(content.size()), &written);
    if (FAILED(hr) || written != content.size()) return E_FAIL;
    hr = storage->SetClass(kRootClass);
    if (FAILED(hr)) return hr;
    return storage->Commit(STGC_DEFAULT);
}

TEST(Docfile, GraphFileIsReadBackByLibgsf) {
    TempDir dir;
    const std::string path = dir.File("graph.grf");
    const auto content = GraphBytes();
    ASSERT_EQ(SaveGraphFile(path, content), S_OK);

    GError* err = nullptr;
    GsfInput* input = gsf_input_stdio_new(path.c_str(), &err);
    ASSERT_NE(input, nullptr);
    GsfInfile* ole = gsf_infile_msole_new(input, &err);
    ASSERT_NE(ole, nullptr) << "not a compound file";
    ASSERT_EQ(gsf_infile_num_children(ole), 1);
    EXPECT_STREQ(gsf_infile_name_by_index(ole, 0), "ActiveMovieGraph");
    GsfInput* stream = gsf_infile_child_by_name(ole, "ActiveMovieGraph");
    ASSERT_NE(stream, nullptr);
    ASSERT_EQ(gsf_input_size(stream), static_cast<gsf_off_t>(content.size()));
    std::vector<uint8_t> back(content.size());
    ASSERT_NE(gsf_input_read(stream, back.size(), back.data()), nullptr);
    EXPECT_EQ(back, content);
    CLSID clsid{};
    gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(ole), reinterpret_cast<guint8*>(&clsid));
    EXPECT_TRUE(IsEqualCLSID(clsid, kRootClass));
    g_object_unref(stream);
    g_object_unref(ole);
    g_object_unref(input);
    EXPECT_EQ(dir.Entries(), std::vector<std::string>{"graph.grf"}) << "no temporary file is left";
}

TEST(Docfile, GraphFileIsReadBackByPythonsOlefile) {
#ifndef MW_OLEFILE_PYTHON
    GTEST_SKIP() << "no Python with olefile was found at configure time";
#else
    TempDir dir;
    const std::string path = dir.File("graph.grf");
    const auto content = GraphBytes();
    ASSERT_EQ(SaveGraphFile(path, content), S_OK);
    const std::string cmd = std::string(MW_OLEFILE_PYTHON) + " '" + MW_TEST_SOURCE_DIR +
                            "/storage_olefile_read.py' '" + path + "' ActiveMovieGraph";
    FILE* p = ::popen(cmd.c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::string out;
    char buf[4096];
    while (size_t n = std::fread(buf, 1, sizeof buf, p))
        out.append(buf, n);
    ASSERT_EQ(::pclose(p), 0) << out;
    const size_t nl = out.find('\n');
    ASSERT_NE(nl, std::string::npos);
    EXPECT_EQ(out.substr(0, nl), mw::GuidToString(kRootClass));
    EXPECT_EQ(out.substr(nl + 1), Hex(content) + "\n");
#endif
}

TEST(Docfile, ReopenedStorageGivesBackStreamsStoragesAndClasses) {
    TempDir dir;
    const std::u16string path = mw::Utf8ToUtf16(dir.File("nested.stg"));
    {
        ComPtr<IStorage> root;
        ASSERT_EQ(
            StgCreateDocfile(path.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                             root.ReleaseAndGetAddressOf()),
            S_OK);
        ComPtr<IStorage> sub;
        ASSERT_EQ(
            root->CreateStorage(u"Filters", STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                                0, sub.ReleaseAndGetAddressOf()),
            S_OK);
        EXPECT_EQ(sub->SetClass(kRootClass), S_OK);
        ComPtr<IStream> s;
        ASSERT_EQ(sub->CreateStream(u"0001", STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                                    0, s.ReleaseAndGetAddressOf()),
                  S_OK);
        EXPECT_EQ(s->Write("abc", 3, nullptr), S_OK);
        ComPtr<IStream> empty;
        EXPECT_EQ(root->CreateStream(u"Empty", STGM_CREATE | STGM_WRITE | STGM_SHARE_EXCLUSIVE, 0,
                                     0, empty.ReleaseAndGetAddressOf()),
                  S_OK);
        // A direct root writes with its last release.
    }
    EXPECT_EQ(StgIsStorageFile(path.c_str()), S_OK);
    ComPtr<IStorage> root;
    ASSERT_EQ(StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                             root.ReleaseAndGetAddressOf()),
              S_OK);
    ComPtr<IEnumSTATSTG> e;
    ASSERT_EQ(root->EnumElements(0, nullptr, 0, e.ReleaseAndGetAddressOf()), S_OK);
    std::vector<std::u16string> names;
    STATSTG st;
    while (e->Next(1, &st, nullptr) == S_OK) {
        names.push_back(st.pwcsName);
        CoTaskMemFree(st.pwcsName);
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::u16string>{u"Empty", u"Filters"}));
    ComPtr<IStorage> sub;
    ASSERT_EQ(root->OpenStorage(u"Filters", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                sub.ReleaseAndGetAddressOf()),
              S_OK);
    CLSID clsid{};
    EXPECT_EQ(ReadClassStg(sub.Get(), &clsid), S_OK);
    EXPECT_TRUE(IsEqualCLSID(clsid, kRootClass));
    ComPtr<IStream> s;
    ASSERT_EQ(sub->OpenStream(u"0001", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                              s.ReleaseAndGetAddressOf()),
              S_OK);
    char buf[8] = {};
    ULONG got = 0;
    EXPECT_EQ(s->Read(buf, sizeof buf, &got), S_OK);
    EXPECT_EQ(got, 3u);
    EXPECT_EQ(std::string(buf, got), "abc");
    EXPECT_EQ(s->Write("x", 1, nullptr), STG_E_ACCESSDENIED);
    ComPtr<IStream> twice;
    EXPECT_EQ(sub->OpenStream(u"0001", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                              twice.ReleaseAndGetAddressOf()),
              STG_E_ACCESSDENIED);
    EXPECT_EQ(sub->OpenStream(u"0002", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                              twice.ReleaseAndGetAddressOf()),
              STG_E_FILENOTFOUND);
    EXPECT_EQ(root->CreateStream(u"New", kGraphStreamMode, 0, 0, twice.ReleaseAndGetAddressOf()),
              STG_E_ACCESSDENIED);
}

TEST(Docfile, TransactedRootWritesOnlyWhatWasCommitted) {
    TempDir dir;
    const std::u16string path = mw::Utf8ToUtf16(dir.File("t.grf"));
    {
        ComPtr<IStorage> root;
        ASSERT_EQ(StgCreateDocfile(path.c_str(), kGraphFileMode, 0, root.ReleaseAndGetAddressOf()),
                  S_OK);
        ComPtr<IStream> s;
        ASSERT_EQ(root->CreateStream(u"ActiveMovieGraph", kGraphStreamMode, 0, 0,
                                     s.ReleaseAndGetAddressOf()),
                  S_OK);
        EXPECT_EQ(s->Write("uncommitted", 11, nullptr), S_OK);
        char c;
        EXPECT_EQ(s->Read(&c, 1, nullptr), STG_E_ACCESSDENIED) << "the stream is write-only";
    }
    ComPtr<IStorage> root;
    ASSERT_EQ(StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                             root.ReleaseAndGetAddressOf()),
              S_OK);
    ComPtr<IStream> s;
    EXPECT_EQ(root->OpenStream(u"ActiveMovieGraph", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                               s.ReleaseAndGetAddressOf()),
              STG_E_FILENOTFOUND);
}

TEST(Docfile, UnwritablePathFailsAndLeavesNoFile) {
    TempDir dir;
    const std::string notADir = dir.File("plain");
    std::ofstream(notADir) << "x";
    ComPtr<IStorage> root;
    EXPECT_EQ(StgCreateDocfile(mw::Utf8ToUtf16(notADir + "/graph.grf").c_str(), kGraphFileMode, 0,
                               root.ReleaseAndGetAddressOf()),
              STG_E_PATHNOTFOUND);
    EXPECT_FALSE(root);
    EXPECT_EQ(StgCreateDocfile(mw::Utf8ToUtf16(dir.File("missing/graph.grf")).c_str(),
                               kGraphFileMode, 0, root.ReleaseAndGetAddressOf()),
              STG_E_PATHNOTFOUND);
    EXPECT_EQ(StgCreateDocfile(u"/proc/mw-graph.grf", kGraphFileMode, 0,
                               root.ReleaseAndGetAddressOf()) < 0,
              true);
    EXPECT_EQ(dir.Entries(), std::vector<std::string>{"plain"});
    // Without STGM_CREATE an existing file is kept.
    EXPECT_EQ(
        StgCreateDocfile(mw::Utf8ToUtf16(notADir).c_str(), STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                         root.ReleaseAndGetAddressOf()),
        STG_E_FILEALREADYEXISTS);
    EXPECT_EQ(StgCreateDocfile(mw::Utf8ToUtf16(dir.File("r.grf")).c_str(),
                               STGM_READ | STGM_SHARE_EXCLUSIVE, 0, root.ReleaseAndGetAddressOf()),
              STG_E_INVALIDFLAG);
    EXPECT_EQ(StgCreateDocfile(nullptr, kGraphFileMode, 1, root.ReleaseAndGetAddressOf()),
              STG_E_INVALIDPARAMETER);
    EXPECT_EQ(StgCreateDocfile(nullptr, kGraphFileMode, 0, nullptr), STG_E_INVALIDPOINTER);
}

TEST(Docfile, AFileHeldExclusivelyIsNotOpenedOrWipedByAnotherStorage) {
    TempDir dir;
    const std::u16string path = mw::Utf8ToUtf16(dir.File("held.grf"));
    ASSERT_EQ(SaveGraphFile(dir.File("held.grf"), GraphBytes()), S_OK);
    ComPtr<IStorage> held;
    ASSERT_EQ(StgOpenStorage(path.c_str(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, nullptr,
                             0, held.ReleaseAndGetAddressOf()),
              S_OK);
    ComPtr<IStorage> other;
    EXPECT_EQ(StgCreateDocfile(path.c_str(), kGraphFileMode, 0, other.ReleaseAndGetAddressOf()),
              STG_E_SHAREVIOLATION);
    EXPECT_EQ(StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_NONE, nullptr, 0,
                             other.ReleaseAndGetAddressOf()),
              STG_E_SHAREVIOLATION);
    EXPECT_FALSE(other);
    // Reopened, the file still holds the graph: the refused create wiped nothing.
    held = nullptr;
    ComPtr<IStream> stream;
    ASSERT_EQ(StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0,
                             held.ReleaseAndGetAddressOf()),
              S_OK);
    ASSERT_EQ(held->OpenStream(u"ActiveMovieGraph", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                               stream.ReleaseAndGetAddressOf()),
              S_OK);
    // Readers that let others read share the file; a writer does not get in.
    EXPECT_EQ(StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0,
                             other.ReleaseAndGetAddressOf()),
              S_OK);
    other = nullptr;
    EXPECT_EQ(StgCreateDocfile(path.c_str(), kGraphFileMode, 0, other.ReleaseAndGetAddressOf()),
              STG_E_SHAREVIOLATION);
    stream = nullptr;
    held = nullptr;
    EXPECT_EQ(StgCreateDocfile(path.c_str(), kGraphFileMode, 0, other.ReleaseAndGetAddressOf()),
              S_OK);
}

TEST(Docfile, AStreamRefusesToGrowPastFourGibibytes) {
    ComPtr<IStorage> root;
    ASSERT_EQ(StgCreateDocfile(nullptr, kGraphFileMode | STGM_DELETEONRELEASE, 0,
                               root.ReleaseAndGetAddressOf()),
              S_OK);
    ComPtr<IStream> stream;
    ASSERT_EQ(root->CreateStream(u"Big", kGraphStreamMode, 0, 0, stream.ReleaseAndGetAddressOf()),
              S_OK);
    LARGE_INTEGER far;
    far.QuadPart = int64_t{1} << 46;
    ASSERT_EQ(stream->Seek(far, STREAM_SEEK_SET, nullptr), S_OK);
    const BYTE one = 1;
    ULONG written = 5;
    EXPECT_EQ(stream->Write(&one, 1, &written), STG_E_MEDIUMFULL);
    EXPECT_EQ(written, 0u);
    ULARGE_INTEGER size;
    size.QuadPart = (uint64_t{1} << 32) + 1;
    EXPECT_EQ(stream->SetSize(size), STG_E_MEDIUMFULL);
    STATSTG st;
    ASSERT_EQ(stream->Stat(&st, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(st.cbSize.QuadPart, 0u);
}

TEST(Docfile, OpeningWhatIsNoCompoundFileFails) {
    TempDir dir;
    const std::string text = dir.File("text.txt");
    std::ofstream(text) << "not a compound file";
    ComPtr<IStorage> root;
    EXPECT_EQ(
        StgOpenStorage(mw::Utf8ToUtf16(text).c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE,
                       nullptr, 0, root.ReleaseAndGetAddressOf()),
        STG_E_FILEALREADYEXISTS);
    EXPECT_EQ(StgIsStorageFile(mw::Utf8ToUtf16(text).c_str()), S_FALSE);
    EXPECT_EQ(
        StgOpenStorage(mw::Utf8ToUtf16(dir.File("none")).c_str(), nullptr,
                       STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0, root.ReleaseAndGetAddressOf()),
        STG_E_FILENOTFOUND);
}

TEST(Docfile, ElementNamesAndModesAreChecked) {
    ComPtr<IStorage> root;
    ASSERT_EQ(StgCreateDocfile(nullptr, kGraphFileMode, 0, root.ReleaseAndGetAddressOf()), S_OK);
    ComPtr<IStream> s;
    EXPECT_EQ(root->CreateStream(u"a/b", kGraphStreamMode, 0, 0, s.ReleaseAndGetAddressOf()),
              STG_E_INVALIDNAME);
    EXPECT_EQ(root->CreateStream(u"0123456789012345678901234567890123", kGraphStreamMode, 0, 0,
                                 s.ReleaseAndGetAddressOf()),
              STG_E_INVALIDNAME);
    EXPECT_EQ(root->CreateStream(u"x", STGM_CREATE | STGM_WRITE | STGM_SHARE_DENY_NONE, 0, 0,
                                 s.ReleaseAndGetAddressOf()),
              STG_E_INVALIDFLAG);
    ASSERT_EQ(root->CreateStream(u"x", STGM_WRITE | STGM_SHARE_EXCLUSIVE, 0, 0,
                                 s.ReleaseAndGetAddressOf()),
              S_OK);
    s.Reset();
    EXPECT_EQ(root->CreateStream(u"X", STGM_WRITE | STGM_SHARE_EXCLUSIVE, 0, 0,
                                 s.ReleaseAndGetAddressOf()),
              STG_E_FILEALREADYEXISTS)
        << "names compare without case";
    EXPECT_EQ(root->RenameElement(u"x", u"y"), S_OK);
    EXPECT_EQ(root->DestroyElement(u"y"), S_OK);
    EXPECT_EQ(root->DestroyElement(u"y"), STG_E_FILENOTFOUND);
}

TEST(Docfile, StreamsOfOneStorageAreWrittenFromManyThreads) {
    TempDir dir;
    const std::u16string path = mw::Utf8ToUtf16(dir.File("threads.grf"));
    ComPtr<IStorage> root;
    ASSERT_EQ(StgCreateDocfile(path.c_str(), kGraphFileMode, 0, root.ReleaseAndGetAddressOf()),
              S_OK);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::u16string name = u"stream" + std::u16string(1, static_cast<char16_t>(u'0' + t));
            ComPtr<IStream> s;
            ASSERT_EQ(root->CreateStream(name.c_str(), kGraphStreamMode, 0, 0,
                                         s.ReleaseAndGetAddressOf()),
                      S_OK);
            for (int i = 0; i < 200; ++i)
                s->Write(&i, sizeof i, nullptr);
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(root->Commit(0), S_OK);
    root.Reset();
    ASSERT_EQ(StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                             root.ReleaseAndGetAddressOf()),
              S_OK);
    ComPtr<IStream> s;
    ASSERT_EQ(root->OpenStream(u"stream3", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                               s.ReleaseAndGetAddressOf()),
              S_OK);
    STATSTG st;
    ASSERT_EQ(s->Stat(&st, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(st.cbSize.QuadPart, 800u);
}

TEST(HGlobalStream, ReadsWritesSeeksAndResizesItsBlock) {
    ComPtr<IStream> s;
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, s.ReleaseAndGetAddressOf()), S_OK);
    ULARGE_INTEGER size;
    size.QuadPart = 16;
    EXPECT_EQ(s->SetSize(size), S_OK);
    LARGE_INTEGER zero{};
    EXPECT_EQ(s->Seek(zero, STREAM_SEEK_SET, nullptr), S_OK);
    EXPECT_EQ(s->Write("compressor state", 16, nullptr), S_OK);
    HGLOBAL h = nullptr;
    ASSERT_EQ(GetHGlobalFromStream(s.Get(), &h), S_OK);
    EXPECT_GE(GlobalSize(h), 16u);
    EXPECT_EQ(std::memcmp(GlobalLock(h), "compressor state", 16), 0);
    GlobalUnlock(h);
    ULARGE_INTEGER pos;
    EXPECT_EQ(s->Seek(zero, STREAM_SEEK_END, &pos), S_OK);
    EXPECT_EQ(pos.QuadPart, 16u);
    LARGE_INTEGER back;
    back.QuadPart = -5;
    EXPECT_EQ(s->Seek(back, STREAM_SEEK_CUR, &pos), S_OK);
    char buf[16] = {};
    ULONG got = 0;
    EXPECT_EQ(s->Read(buf, sizeof buf, &got), S_OK);
    EXPECT_EQ(std::string(buf, got), "state");
    back.QuadPart = -100;
    EXPECT_EQ(s->Seek(back, STREAM_SEEK_CUR, nullptr), STG_E_INVALIDFUNCTION);
    STATSTG st;
    EXPECT_EQ(s->Stat(&st, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(st.cbSize.QuadPart, 16u);
    ComPtr<IStream> clone;
    EXPECT_EQ(s->Clone(clone.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(GetHGlobalFromStream(clone.Get(), &h), S_OK);
}

TEST(HGlobalStream, WrapsACallersBlockAndLeavesItToTheCaller) {
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, 4);
    std::memcpy(GlobalLock(h), "data", 4);
    GlobalUnlock(h);
    {
        ComPtr<IStream> s;
        ASSERT_EQ(CreateStreamOnHGlobal(h, FALSE, s.ReleaseAndGetAddressOf()), S_OK);
        char buf[4];
        ULONG got = 0;
        EXPECT_EQ(s->Read(buf, 4, &got), S_OK);
        EXPECT_EQ(std::string(buf, got), "data");
    }
    EXPECT_EQ(GlobalFree(h), nullptr) << "the block outlives the stream";
    ComPtr<IStream> s;
    EXPECT_EQ(CreateStreamOnHGlobal(reinterpret_cast<HGLOBAL>(static_cast<uintptr_t>(0x7777)),
                                    FALSE, s.ReleaseAndGetAddressOf()),
              E_INVALIDARG);
}

}  // namespace
