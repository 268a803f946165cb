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

#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
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

// ---- damaged files

constexpr DWORD kReadOnly = STGM_READ | STGM_SHARE_EXCLUSIVE;

std::vector<uint8_t> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

// A compound file with streams in small and big blocks and a storage, as bytes.
std::vector<uint8_t> SampleDocfile(const TempDir& dir) {
    const std::string path = dir.File("sample.stg");
    {
        ComPtr<IStorage> root;
        EXPECT_EQ(StgCreateDocfile(mw::Utf8ToUtf16(path).c_str(),
                                   STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                                   root.ReleaseAndGetAddressOf()),
                  S_OK);
        for (int i = 0; i < 6; ++i) {
            const std::u16string name = u"Stream" + std::u16string(1, char16_t(u'A' + i));
            ComPtr<IStream> s;
            EXPECT_EQ(root->CreateStream(name.c_str(), kGraphStreamMode, 0, 0,
                                         s.ReleaseAndGetAddressOf()),
                      S_OK);
            const std::vector<uint8_t> data(i * 1500 + 10, static_cast<uint8_t>(i));
            EXPECT_EQ(s->Write(data.data(), static_cast<ULONG>(data.size()), nullptr), S_OK);
        }
        ComPtr<IStorage> sub;
        EXPECT_EQ(root->CreateStorage(u"Sub", kGraphStreamMode, 0, 0, sub.ReleaseAndGetAddressOf()),
                  S_OK);
        ComPtr<IStream> inner;
        EXPECT_EQ(
            sub->CreateStream(u"Inner", kGraphStreamMode, 0, 0, inner.ReleaseAndGetAddressOf()),
            S_OK);
        EXPECT_EQ(inner->Write("hello", 5, nullptr), S_OK);
    }
    return ReadBytes(path);
}

HRESULT OpenBytes(const TempDir& dir, const std::vector<uint8_t>& bytes, ComPtr<IStorage>* root) {
    const std::string path = dir.File("opened.stg");
    WriteBytes(path, bytes);
    return StgOpenStorage(mw::Utf8ToUtf16(path).c_str(), nullptr, kReadOnly, nullptr, 0,
                          root->ReleaseAndGetAddressOf());
}

// Reads every stream of the tree; the number of elements seen.
int WalkStorage(IStorage* storage) {
    int elements = 0;
    ComPtr<IEnumSTATSTG> e;
    if (FAILED(storage->EnumElements(0, nullptr, 0, e.ReleaseAndGetAddressOf()))) return 0;
    STATSTG st;
    while (e->Next(1, &st, nullptr) == S_OK) {
        ++elements;
        if (st.type == STGTY_STORAGE) {
            ComPtr<IStorage> sub;
            if (SUCCEEDED(storage->OpenStorage(st.pwcsName, nullptr, kReadOnly, nullptr, 0,
                                               sub.ReleaseAndGetAddressOf())))
                elements += WalkStorage(sub.Get());
        } else {
            ComPtr<IStream> stream;
            if (SUCCEEDED(storage->OpenStream(st.pwcsName, nullptr, kReadOnly, 0,
                                              stream.ReleaseAndGetAddressOf()))) {
                std::vector<uint8_t> buf(static_cast<size_t>(st.cbSize.QuadPart) + 1);
                ULONG got = 0;
                stream->Read(buf.data(), static_cast<ULONG>(buf.size()), &got);
                EXPECT_EQ(got, st.cbSize.QuadPart);
            }
        }
        CoTaskMemFree(st.pwcsName);
    }
    return elements;
}

// Sends stderr to a file while it lives, so that a test can tell what was printed.
class StderrCapture {
public:
    explicit StderrCapture(std::string path) : path_(std::move(path)) {
        std::fflush(stderr);
        saved_ = ::dup(STDERR_FILENO);
        const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        ::dup2(fd, STDERR_FILENO);
        ::close(fd);
    }
    ~StderrCapture() { Stop(); }
    std::string Stop() {
        if (saved_ >= 0) {
            std::fflush(stderr);
            ::dup2(saved_, STDERR_FILENO);
            ::close(saved_);
            saved_ = -1;
        }
        std::ifstream in(path_);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

private:
    std::string path_;
    int saved_ = -1;
};

// Offset of the first directory sector of a compound file (sector size from the header).
size_t DirectoryOffset(const std::vector<uint8_t>& bytes) {
    const uint32_t sectorShift = bytes[0x1E] | bytes[0x1F] << 8;
    const uint32_t first = bytes[0x30] | bytes[0x31] << 8 | bytes[0x32] << 16 |
                           static_cast<uint32_t>(bytes[0x33]) << 24;
    return (static_cast<size_t>(first) + 1) << sectorShift;
}

// Where the UTF-16 name sits in the file's directory.
size_t FindName(const std::vector<uint8_t>& bytes, const std::u16string& name) {
    std::vector<uint8_t> pattern;
    for (char16_t c : name) {
        pattern.push_back(static_cast<uint8_t>(c));
        pattern.push_back(static_cast<uint8_t>(c >> 8));
    }
    const auto it = std::search(bytes.begin(), bytes.end(), pattern.begin(), pattern.end());
    return it == bytes.end() ? std::string::npos : static_cast<size_t>(it - bytes.begin());
}

TEST(Docfile, DamagedFilesAreRefusedAsCorruptWithoutAWordOnStderr) {
    TempDir dir;
    const std::vector<uint8_t> good = SampleDocfile(dir);
    ASSERT_GT(good.size(), 4096u);
    {
        ComPtr<IStorage> root;
        ASSERT_EQ(OpenBytes(dir, good, &root), S_OK);
        EXPECT_EQ(WalkStorage(root.Get()), 8);
    }
    // Bytes changed at random (a fixed seed) in the header, the tables, the directory and the
    // data: each file opens and reads, or is refused as corrupt; nothing is printed and nothing
    // aborts (the tests run with GLib criticals fatal).
    std::mt19937 random(20261123);
    int corrupt = 0, opened = 0;
    StderrCapture capture(dir.File("stderr.txt"));
    for (int n = 0; n < 800; ++n) {
        std::vector<uint8_t> bytes = good;
        const int changes = 1 + static_cast<int>(random() % 4);
        for (int k = 0; k < changes; ++k)
            bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
        ComPtr<IStorage> root;
        const HRESULT hr = OpenBytes(dir, bytes, &root);
        if (hr == S_OK) {
            ++opened;
            WalkStorage(root.Get());
        } else {
            // A file whose signature was hit is no compound file at all.
            const bool signed_ = std::equal(good.begin(), good.begin() + 8, bytes.begin());
            corrupt += signed_;
            EXPECT_EQ(hr, signed_ ? STG_E_DOCFILECORRUPT : STG_E_FILEALREADYEXISTS)
                << "variant " << n;
        }
    }
    EXPECT_EQ(capture.Stop(), "");
    EXPECT_GT(corrupt, 0);
    EXPECT_GT(opened, 0);
}

TEST(Docfile, ADirectoryPointingPastItsEndIsCorrupt) {
    TempDir dir;
    std::vector<uint8_t> bytes = SampleDocfile(dir);
    // The root entry's child: an entry number far beyond the directory.
    const size_t child = DirectoryOffset(bytes) + 0x4C;
    ASSERT_LT(child + 4, bytes.size());
    bytes[child] = 0x00;
    bytes[child + 1] = 0x7F;
    bytes[child + 2] = 0x00;
    bytes[child + 3] = 0x00;
    StderrCapture capture(dir.File("stderr.txt"));
    ComPtr<IStorage> root;
    EXPECT_EQ(OpenBytes(dir, bytes, &root), STG_E_DOCFILECORRUPT);
    EXPECT_EQ(capture.Stop(), "");
}

TEST(Docfile, TwoElementsOfOneNameInAStorageAreRefused) {
    TempDir dir;
    const std::vector<uint8_t> good = SampleDocfile(dir);
    // "StreamB" renamed in place to "STREAMA": names compare without case, so the storage
    // would hold two elements of one name, one of them out of reach.
    std::vector<uint8_t> bytes = good;
    const size_t at = FindName(bytes, u"StreamB");
    ASSERT_NE(at, std::string::npos);
    const std::u16string twin = u"STREAMA";
    for (size_t i = 0; i < twin.size(); ++i)
        bytes[at + 2 * i] = static_cast<uint8_t>(twin[i]);
    ComPtr<IStorage> root;
    EXPECT_EQ(OpenBytes(dir, bytes, &root), STG_E_DOCFILECORRUPT);

    // The same rename to a name of its own opens, and both streams are there.
    bytes = good;
    const std::u16string other = u"StreamZ";
    for (size_t i = 0; i < other.size(); ++i)
        bytes[at + 2 * i] = static_cast<uint8_t>(other[i]);
    ASSERT_EQ(OpenBytes(dir, bytes, &root), S_OK);
    ComPtr<IStream> s;
    EXPECT_EQ(root->OpenStream(u"StreamZ", nullptr, kReadOnly, 0, s.ReleaseAndGetAddressOf()),
              S_OK);
    EXPECT_EQ(root->OpenStream(u"StreamA", nullptr, kReadOnly, 0, s.ReleaseAndGetAddressOf()),
              S_OK);
}

TEST(Docfile, TheSignatureFollowedByGarbageIsCorruptNotAnotherKindOfFile) {
    TempDir dir;
    std::vector<uint8_t> bytes = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    bytes.resize(2048, 0x5A);
    ComPtr<IStorage> root;
    EXPECT_EQ(OpenBytes(dir, bytes, &root), STG_E_DOCFILECORRUPT);
    bytes.resize(100);
    EXPECT_EQ(OpenBytes(dir, bytes, &root), STG_E_DOCFILECORRUPT);
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
