// Structured storage: compound files held in memory while open and written with libgsf.
//
// A docfile is a tree of nodes (storages and streams) shared by the IStorage and IStream
// objects opened on it, guarded by one mutex per document. Writing builds the compound file in
// memory with libgsf, writes it to a temporary file beside the target and renames it over the
// target, so the target is either the old file or the complete new one. libgsf calls are
// serialised process-wide.
// The platform's declarations come first: <fcntl.h> defines LOCK_WRITE as a macro under
// _GNU_SOURCE, which would clash with the LOCKTYPE enumerator of objidl.h.
#include "ComObject.h"
#include "mwcom.h"
#include "mwstring.h"

#include <fcntl.h>
#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-memory.h>
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-memory.h>
#include <gsf/gsf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

using mw::com::QueryTable;
using mw::com::SnapshotEnumerator;

std::mutex& GsfMutex() {
    static std::mutex m;
    return m;
}

// libgsf reports damaged input through GLib's log: warnings, and criticals from its own
// assertions on bad data (which abort the process under G_DEBUG=fatal-criticals). While this
// file runs libgsf on a thread, the messages of libgsf's domains on that thread are taken as
// the reader's verdict instead of being printed: a critical means the file is damaged. Every
// other message (another thread, another library, GLib's own) goes on to the handling the
// process had, fatal or not.
thread_local int tGsfCriticals = -1;  // -1: this thread is not in a libgsf call of ours
// The default handler the process had (its data is not known to GLib's API, so none is passed).
std::atomic<GLogFunc> gPreviousLogHandler{nullptr};

bool IsGsfMessage(const gchar* domain) {
    return tGsfCriticals >= 0 && (!domain || std::strncmp(domain, "libgsf", 6) == 0);
}

void OnLogMessage(const gchar* domain, GLogLevelFlags level, const gchar* message, gpointer) {
    if (IsGsfMessage(domain)) {
        if (level & (G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR)) ++tGsfCriticals;
        return;
    }
    const GLogFunc previous = gPreviousLogHandler.load();
    (previous ? previous : g_log_default_handler)(domain, level, message, nullptr);
}

gboolean OnFatalLogMessage(const gchar* domain, GLogLevelFlags, const gchar*, gpointer) {
    return !IsGsfMessage(domain);
}

// One libgsf call sequence of this file: holds the process-wide libgsf lock and collects
// libgsf's complaints on this thread.
class GsfCall {
public:
    GsfCall() : lock_(GsfMutex()) {
        static std::once_flag once;
        std::call_once(once, [] {
            gPreviousLogHandler = g_log_set_default_handler(OnLogMessage, nullptr);
            // GLib asks it only about fatal messages: all but libgsf's own still abort.
            g_test_log_set_fatal_handler(OnFatalLogMessage, nullptr);
        });
        tGsfCriticals = 0;
    }
    ~GsfCall() { tGsfCriticals = -1; }
    GsfCall(const GsfCall&) = delete;
    GsfCall& operator=(const GsfCall&) = delete;
    bool SawDamage() const { return tGsfCriticals > 0; }

private:
    std::lock_guard<std::mutex> lock_;
};

FILETIME Now() {
    const auto t =
        std::chrono::duration_cast<std::chrono::duration<int64_t, std::ratio<1, 10000000>>>(
            std::chrono::system_clock::now().time_since_epoch())
            .count() +
        116444736000000000LL;
    return FILETIME{static_cast<DWORD>(t), static_cast<DWORD>(static_cast<uint64_t>(t) >> 32)};
}

struct Node {
    std::u16string name;
    bool isStorage = false;
    CLSID clsid{};
    DWORD stateBits = 0;
    FILETIME ctime{}, mtime{}, atime{};
    std::vector<uint8_t> data;                    // streams
    std::vector<std::shared_ptr<Node>> children;  // storages, in creation order
    int opened = 0;                               // open IStream/IStorage objects on the node

    std::shared_ptr<Node> Child(std::u16string_view n) const {
        for (const auto& c : children)
            if (mw::U16EqualNoCase(c->name, n)) return c;
        return nullptr;
    }
    std::shared_ptr<Node> Clone() const {
        auto n = std::make_shared<Node>(*this);
        n->opened = 0;
        for (auto& c : n->children)
            c = c->Clone();
        return n;
    }
};

constexpr DWORD kAccessMask = 0x3;
constexpr DWORD kShareMask = 0x70;

// Share modes between the root storages of this process: an open that would read or write
// what another open denies (or deny what another open does) is refused. The claim goes with
// the document.
class ShareClaim {
public:
    ShareClaim() = default;
    ShareClaim(const ShareClaim&) = delete;
    ShareClaim& operator=(const ShareClaim&) = delete;
    ~ShareClaim() { Release(); }

    // False when the path is open elsewhere in a way that this mode conflicts with.
    bool Claim(const std::string& path, DWORD mode) {
        std::error_code ec;
        key_ = std::filesystem::weakly_canonical(path, ec).string();
        if (ec) key_ = path;
        entry_ = {Uses(mode), Denies(mode)};
        std::lock_guard lock(TableMutex());
        auto range = Table().equal_range(key_);
        for (auto it = range.first; it != range.second; ++it)
            if ((it->second.uses & entry_.denies) || (entry_.uses & it->second.denies)) {
                key_.clear();
                return false;
            }
        Table().emplace(key_, entry_);
        return true;
    }

private:
    struct Entry {
        unsigned uses = 0;    // bit 0 read, bit 1 write
        unsigned denies = 0;  // the same bits, denied to others
        bool operator==(const Entry&) const = default;
    };
    static unsigned Uses(DWORD mode) {
        switch (mode & kAccessMask) {
            case STGM_READ:
                return 1;
            case STGM_WRITE:
                return 2;
            default:
                return 3;
        }
    }
    static unsigned Denies(DWORD mode) {
        switch (mode & kShareMask) {
            case STGM_SHARE_EXCLUSIVE:
                return 3;
            case STGM_SHARE_DENY_WRITE:
                return 2;
            case STGM_SHARE_DENY_READ:
                return 1;
            default:
                return 0;
        }
    }
    static std::multimap<std::string, Entry>& Table() {
        static std::multimap<std::string, Entry> table;
        return table;
    }
    static std::mutex& TableMutex() {
        static std::mutex m;
        return m;
    }
    void Release() {
        if (key_.empty()) return;
        std::lock_guard lock(TableMutex());
        auto range = Table().equal_range(key_);
        for (auto it = range.first; it != range.second; ++it)
            if (it->second == entry_) {
                Table().erase(it);
                break;
            }
    }

    std::string key_;
    Entry entry_;
};

struct Doc {
    std::mutex mutex;
    ShareClaim share;
    std::string path;  // empty: a temporary docfile without a name
    bool transacted = false;
    bool deleteOnRelease = false;
    std::shared_ptr<Node> root;
    std::shared_ptr<Node> committed;  // snapshot for Revert of a transacted root
    uint64_t generation = 0;          // changes on Revert: older objects answer STG_E_REVERTED
};

HRESULT ErrnoToStg(int e) {
    switch (e) {
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR:
            return STG_E_ACCESSDENIED;
        case ENOENT:
        case ENOTDIR:
            return STG_E_PATHNOTFOUND;
        case ENOSPC:
        case EDQUOT:
            return STG_E_MEDIUMFULL;
        case ENAMETOOLONG:
            return STG_E_INVALIDNAME;
        case EMFILE:
        case ENFILE:
            return STG_E_TOOMANYOPENFILES;
        default:
            return STG_E_WRITEFAULT;
    }
}

// ---- libgsf: node tree <-> compound file bytes

bool WriteNode(GsfOutfile* parent, const Node& node) {
    for (const auto& c : node.children) {
        GsfOutput* child =
            gsf_outfile_new_child(parent, mw::Utf16ToUtf8(c->name).c_str(), c->isStorage);
        if (!child) return false;
        bool ok = true;
        if (c->isStorage) {
            gsf_outfile_msole_set_class_id(GSF_OUTFILE_MSOLE(child),
                                           reinterpret_cast<const guint8*>(&c->clsid));
            ok = WriteNode(GSF_OUTFILE(child), *c);
        } else if (!c->data.empty()) {
            ok = gsf_output_write(child, c->data.size(), c->data.data());
        }
        ok = gsf_output_close(child) && ok;
        g_object_unref(child);
        if (!ok) return false;
    }
    return true;
}

bool BuildFile(const Node& root, std::vector<uint8_t>* bytes) {
    GsfCall call;
    GsfOutput* mem = gsf_output_memory_new();
    GsfOutfile* ole = gsf_outfile_msole_new(mem);
    bool ok = ole != nullptr;
    if (ok) {
        gsf_outfile_msole_set_class_id(GSF_OUTFILE_MSOLE(ole),
                                       reinterpret_cast<const guint8*>(&root.clsid));
        ok = WriteNode(ole, root);
        ok = gsf_output_close(GSF_OUTPUT(ole)) && ok;
        g_object_unref(ole);
    }
    ok = ok && !call.SawDamage();
    if (ok) {
        const guint8* p = gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(mem));
        const gsf_off_t n = gsf_output_size(mem);
        bytes->assign(p, p + n);
    }
    // Closing the compound file closes the memory output under it.
    if (!gsf_output_is_closed(mem)) gsf_output_close(mem);
    g_object_unref(mem);
    return ok;
}

bool ReadNode(GsfInfile* in, Node* node) {
    const int n = gsf_infile_num_children(in);
    for (int i = 0; i < n; ++i) {
        GsfInput* child = gsf_infile_child_by_index(in, i);
        if (!child) return false;
        auto c = std::make_shared<Node>();
        const char* name = gsf_infile_name_by_index(in, i);
        c->name = mw::Utf8ToUtf16(name ? name : "");
        bool ok = true;
        if (GSF_IS_INFILE(child) && gsf_infile_num_children(GSF_INFILE(child)) >= 0) {
            c->isStorage = true;
            gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(child),
                                          reinterpret_cast<guint8*>(&c->clsid));
            ok = ReadNode(GSF_INFILE(child), c.get());
        } else {
            const gsf_off_t size = gsf_input_size(child);
            c->data.resize(static_cast<size_t>(size));
            if (size > 0)
                ok = gsf_input_read(child, static_cast<size_t>(size), c->data.data()) != nullptr;
        }
        g_object_unref(child);
        if (!ok) return false;
        // Names compare without case: a second element of a name could never be reached.
        if (node->Child(c->name)) return false;
        node->children.push_back(std::move(c));
    }
    return true;
}

constexpr uint8_t kDocfileSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

// S_OK; STG_E_FILEALREADYEXISTS for a file that is not a compound file; STG_E_DOCFILECORRUPT
// for one that carries the signature but is damaged (its tables, its directory, or two
// elements of one name in a storage); STG_E_INSUFFICIENTMEMORY.
HRESULT ParseFile(const std::vector<uint8_t>& bytes, std::shared_ptr<Node>* root) {
    if (bytes.size() < sizeof kDocfileSignature ||
        std::memcmp(bytes.data(), kDocfileSignature, sizeof kDocfileSignature) != 0)
        return STG_E_FILEALREADYEXISTS;
    GsfCall call;
    GsfInput* mem = gsf_input_memory_new(bytes.data(), static_cast<gsf_off_t>(bytes.size()), FALSE);
    if (!mem) return STG_E_INSUFFICIENTMEMORY;
    GError* err = nullptr;
    GsfInfile* ole = gsf_infile_msole_new(mem, &err);
    if (err) g_error_free(err);
    if (!ole) {
        g_object_unref(mem);
        return STG_E_DOCFILECORRUPT;
    }
    auto r = std::make_shared<Node>();
    r->isStorage = true;
    gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(ole), reinterpret_cast<guint8*>(&r->clsid));
    const bool ok = ReadNode(ole, r.get());
    g_object_unref(ole);
    g_object_unref(mem);
    if (!ok || call.SawDamage()) return STG_E_DOCFILECORRUPT;
    *root = std::move(r);
    return S_OK;
}

// Writes bytes to a temporary file beside path and renames it over path.
HRESULT WriteAtomically(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::string tmpl = path + ".mwtmp-XXXXXX";
    std::vector<char> name(tmpl.begin(), tmpl.end());
    name.push_back('\0');
    int fd = ::mkstemp(name.data());
    if (fd < 0) return ErrnoToStg(errno);
    size_t done = 0;
    int err = 0;
    while (done < bytes.size()) {
        ssize_t w = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (w < 0) {
            if (errno == EINTR) continue;
            err = errno;
            break;
        }
        done += static_cast<size_t>(w);
    }
    if (!err && ::fsync(fd) != 0) err = errno;
    // Give the file the mode a newly created file gets (mkstemp makes it 0600).
    mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
    if (::close(fd) != 0 && !err) err = errno;
    if (!err && ::rename(name.data(), path.c_str()) != 0) err = errno;
    if (err) {
        ::unlink(name.data());
        return ErrnoToStg(err);
    }
    return S_OK;
}

HRESULT ReadWholeFile(const std::string& path, std::vector<uint8_t>* bytes) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT ? STG_E_FILENOTFOUND : ErrnoToStg(errno);
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return STG_E_ACCESSDENIED;
    }
    bytes->resize(static_cast<size_t>(st.st_size));
    size_t done = 0;
    while (done < bytes->size()) {
        ssize_t r = ::read(fd, bytes->data() + done, bytes->size() - done);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) {
            ::close(fd);
            return STG_E_READFAULT;
        }
        done += static_cast<size_t>(r);
    }
    ::close(fd);
    return S_OK;
}

// Caller holds doc.mutex.
HRESULT FlushDoc(Doc& doc) {
    if (doc.path.empty()) return S_OK;
    std::vector<uint8_t> bytes;
    if (!BuildFile(*doc.root, &bytes)) return STG_E_WRITEFAULT;
    return WriteAtomically(doc.path, bytes);
}

// Streams stay below 4 GiB, the largest size a compound file of this format holds.
constexpr uint64_t kMaxStreamSize = 1ull << 32;

// Grows or shrinks a stream's bytes; false when memory runs out.
bool Resize(std::vector<uint8_t>& data, uint64_t size) {
    try {
        data.resize(static_cast<size_t>(size));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// ---- names and modes

bool ValidElementName(LPCOLESTR name) {
    if (!name) return false;
    const size_t n = mw::U16Len(name);
    if (n == 0 || n > 31) return false;
    for (size_t i = 0; i < n; ++i)
        if (name[i] == u'/' || name[i] == u'\\' || name[i] == u':' || name[i] == u'!') return false;
    return true;
}

bool CanWrite(DWORD mode) {
    return (mode & kAccessMask) == STGM_WRITE || (mode & kAccessMask) == STGM_READWRITE;
}
bool CanRead(DWORD mode) {
    return (mode & kAccessMask) == STGM_READ || (mode & kAccessMask) == STGM_READWRITE;
}
bool ValidAccess(DWORD mode) {
    return (mode & kAccessMask) != 3;
}

void FillStat(const Node& n, DWORD mode, DWORD grfStatFlag, STATSTG* st) {
    std::memset(st, 0, sizeof *st);
    if (!(grfStatFlag & STATFLAG_NONAME)) st->pwcsName = mw::CoTaskMemDup(n.name);
    st->type = n.isStorage ? STGTY_STORAGE : STGTY_STREAM;
    st->cbSize.QuadPart = n.isStorage ? 0 : n.data.size();
    st->mtime = n.mtime;
    st->ctime = n.ctime;
    st->atime = n.atime;
    st->grfMode = mode;
    st->clsid = n.clsid;
    st->grfStateBits = n.stateBits;
}

// ---- IStream on a node of a docfile

class StorageStream final : public IStream {
    MW_COM_REFCOUNT
public:
    StorageStream(std::shared_ptr<Doc> doc, std::shared_ptr<Node> node, DWORD mode, uint64_t gen,
                  uint64_t pos = 0)
        : doc_(std::move(doc)), node_(std::move(node)), mode_(mode), generation_(gen), pos_(pos) {}
    ~StorageStream() {
        std::lock_guard lock(doc_->mutex);
        --node_->opened;
    }

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return QueryTable(riid, ppv, {{&IID_IStream, this}, {&IID_ISequentialStream, this}});
    }
    STDMETHODIMP Read(void* pv, ULONG cb, ULONG* pcbRead) override {
        if (pcbRead) *pcbRead = 0;
        if (!pv) return STG_E_INVALIDPOINTER;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (!CanRead(mode_)) return STG_E_ACCESSDENIED;
        const auto& d = node_->data;
        const size_t n = pos_ >= d.size() ? 0 : std::min<size_t>(cb, d.size() - pos_);
        if (n) std::memcpy(pv, d.data() + pos_, n);
        pos_ += n;
        if (pcbRead) *pcbRead = static_cast<ULONG>(n);
        return S_OK;
    }
    STDMETHODIMP Write(const void* pv, ULONG cb, ULONG* pcbWritten) override {
        if (pcbWritten) *pcbWritten = 0;
        if (!pv && cb) return STG_E_INVALIDPOINTER;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (!CanWrite(mode_)) return STG_E_ACCESSDENIED;
        auto& d = node_->data;
        if (pos_ + cb > kMaxStreamSize) return STG_E_MEDIUMFULL;
        if (pos_ + cb > d.size() && !Resize(d, pos_ + cb)) return STG_E_INSUFFICIENTMEMORY;
        if (cb) std::memcpy(d.data() + pos_, pv, cb);
        pos_ += cb;
        node_->mtime = Now();
        if (pcbWritten) *pcbWritten = cb;
        return S_OK;
    }
    STDMETHODIMP Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin,
                      ULARGE_INTEGER* plibNewPosition) override {
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        return mw::com::SeekStream(pos_, node_->data.size(), dlibMove, dwOrigin, plibNewPosition);
    }
    STDMETHODIMP SetSize(ULARGE_INTEGER libNewSize) override {
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (!CanWrite(mode_)) return STG_E_ACCESSDENIED;
        if (libNewSize.QuadPart > kMaxStreamSize) return STG_E_MEDIUMFULL;
        if (!Resize(node_->data, libNewSize.QuadPart)) return STG_E_INSUFFICIENTMEMORY;
        return S_OK;
    }
    STDMETHODIMP CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead,
                        ULARGE_INTEGER* pcbWritten) override {
        if (!pstm) return STG_E_INVALIDPOINTER;
        std::vector<uint8_t> chunk;
        {
            std::lock_guard lock(doc_->mutex);
            if (generation_ != doc_->generation) return STG_E_REVERTED;
            const auto& d = node_->data;
            const size_t n =
                pos_ >= d.size()
                    ? 0
                    : static_cast<size_t>(std::min<uint64_t>(cb.QuadPart, d.size() - pos_));
            chunk.assign(d.begin() + static_cast<ptrdiff_t>(pos_),
                         d.begin() + static_cast<ptrdiff_t>(pos_ + n));
            pos_ += n;
        }
        ULONG written = 0;
        HRESULT hr = chunk.empty()
                         ? S_OK
                         : pstm->Write(chunk.data(), static_cast<ULONG>(chunk.size()), &written);
        if (pcbRead) pcbRead->QuadPart = chunk.size();
        if (pcbWritten) pcbWritten->QuadPart = written;
        return hr;
    }
    STDMETHODIMP Commit(DWORD) override { return S_OK; }  // streams are direct within their storage
    STDMETHODIMP Revert() override { return S_OK; }
    STDMETHODIMP LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        return STG_E_INVALIDFUNCTION;
    }
    STDMETHODIMP UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        return STG_E_INVALIDFUNCTION;
    }
    STDMETHODIMP Stat(STATSTG* pstatstg, DWORD grfStatFlag) override {
        if (!pstatstg) return STG_E_INVALIDPOINTER;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        FillStat(*node_, mode_, grfStatFlag, pstatstg);
        return S_OK;
    }
    STDMETHODIMP Clone(IStream** ppstm) override {
        if (!ppstm) return STG_E_INVALIDPOINTER;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        ++node_->opened;
        *ppstm = new StorageStream(doc_, node_, mode_, generation_, pos_);
        return S_OK;
    }

private:
    std::shared_ptr<Doc> doc_;
    std::shared_ptr<Node> node_;
    DWORD mode_;
    uint64_t generation_;
    uint64_t pos_;
};

// ---- IEnumSTATSTG

// The snapshot owns its names; Next hands out copies.
void CopyStat(const STATSTG& item, STATSTG* out) {
    *out = item;
    out->pwcsName = mw::CoTaskMemDup(item.pwcsName ? item.pwcsName : u"");
}
using StatEnumerator =
    SnapshotEnumerator<IEnumSTATSTG, STATSTG, STATSTG, CopyStat, STG_E_INVALIDPOINTER>;

// ---- IStorage on a node of a docfile

class Storage final : public IStorage {
    MW_COM_REFCOUNT
public:
    Storage(std::shared_ptr<Doc> doc, std::shared_ptr<Node> node, DWORD mode, bool isRoot,
            uint64_t gen)
        : doc_(std::move(doc)),
          node_(std::move(node)),
          mode_(mode),
          isRoot_(isRoot),
          generation_(gen) {}
    ~Storage() {
        std::lock_guard lock(doc_->mutex);
        --node_->opened;
        if (!isRoot_) return;
        // A direct root writes what it holds with its last reference; a transacted root
        // discards what was not committed.
        if (!doc_->transacted && CanWrite(mode_)) FlushDoc(*doc_);
        if (doc_->deleteOnRelease && !doc_->path.empty()) ::unlink(doc_->path.c_str());
    }

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return QueryTable(riid, ppv, {{&IID_IStorage, this}});
    }

    STDMETHODIMP CreateStream(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved1,
                              DWORD reserved2, IStream** ppstm) override {
        if (!ppstm) return STG_E_INVALIDPOINTER;
        *ppstm = nullptr;
        if (reserved1 || reserved2) return STG_E_INVALIDPARAMETER;
        if (!ValidElementName(pwcsName)) return STG_E_INVALIDNAME;
        HRESULT hr = CheckChildMode(grfMode, true);
        if (FAILED(hr)) return hr;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (!CanWrite(mode_)) return STG_E_ACCESSDENIED;
        auto node = Replaceable(pwcsName, grfMode, &hr);
        if (FAILED(hr)) return hr;
        node->isStorage = false;
        ++node->opened;
        *ppstm = new StorageStream(doc_, node, grfMode & ~STGM_CREATE, generation_);
        return S_OK;
    }

    STDMETHODIMP OpenStream(const OLECHAR* pwcsName, void* reserved1, DWORD grfMode,
                            DWORD reserved2, IStream** ppstm) override {
        if (!ppstm) return STG_E_INVALIDPOINTER;
        *ppstm = nullptr;
        if (reserved1 || reserved2) return STG_E_INVALIDPARAMETER;
        if (!pwcsName) return STG_E_INVALIDNAME;
        HRESULT hr = CheckChildMode(grfMode, false);
        if (FAILED(hr)) return hr;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (CanWrite(grfMode) && !CanWrite(mode_)) return STG_E_ACCESSDENIED;
        auto node = node_->Child(pwcsName);
        if (!node || node->isStorage) return STG_E_FILENOTFOUND;
        if (node->opened) return STG_E_ACCESSDENIED;
        ++node->opened;
        *ppstm = new StorageStream(doc_, node, grfMode, generation_);
        return S_OK;
    }

    STDMETHODIMP CreateStorage(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved1,
                               DWORD reserved2, IStorage** ppstg) override {
        if (!ppstg) return STG_E_INVALIDPOINTER;
        *ppstg = nullptr;
        if (reserved1 || reserved2) return STG_E_INVALIDPARAMETER;
        if (!ValidElementName(pwcsName)) return STG_E_INVALIDNAME;
        HRESULT hr = CheckChildMode(grfMode & ~STGM_TRANSACTED, true);
        if (FAILED(hr)) return hr;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (!CanWrite(mode_)) return STG_E_ACCESSDENIED;
        auto node = Replaceable(pwcsName, grfMode, &hr);
        if (FAILED(hr)) return hr;
        node->isStorage = true;
        ++node->opened;
        *ppstg = new Storage(doc_, node, grfMode & ~STGM_CREATE, false, generation_);
        return S_OK;
    }

    STDMETHODIMP OpenStorage(const OLECHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode,
                             SNB snbExclude, DWORD reserved, IStorage** ppstg) override {
        if (!ppstg) return STG_E_INVALIDPOINTER;
        *ppstg = nullptr;
        if (reserved || pstgPriority || snbExclude) return STG_E_INVALIDPARAMETER;
        if (!pwcsName) return STG_E_INVALIDNAME;
        HRESULT hr = CheckChildMode(grfMode & ~STGM_TRANSACTED, false);
        if (FAILED(hr)) return hr;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (CanWrite(grfMode) && !CanWrite(mode_)) return STG_E_ACCESSDENIED;
        auto node = node_->Child(pwcsName);
        if (!node || !node->isStorage) return STG_E_FILENOTFOUND;
        if (node->opened) return STG_E_ACCESSDENIED;
        ++node->opened;
        *ppstg = new Storage(doc_, node, grfMode, false, generation_);
        return S_OK;
    }

    STDMETHODIMP CopyTo(DWORD ciidExclude, const IID* rgiidExclude, SNB snbExclude,
                        IStorage* pstgDest) override {
        if (!pstgDest) return STG_E_INVALIDPOINTER;
        if (pstgDest == this) return STG_E_ACCESSDENIED;
        bool skipStorages = false, skipStreams = false;
        for (DWORD i = 0; rgiidExclude && i < ciidExclude; ++i) {
            if (IsEqualIID(rgiidExclude[i], IID_IStorage)) skipStorages = true;
            if (IsEqualIID(rgiidExclude[i], IID_IStream)) skipStreams = true;
        }
        std::shared_ptr<Node> snapshot;
        {
            std::lock_guard lock(doc_->mutex);
            if (generation_ != doc_->generation) return STG_E_REVERTED;
            snapshot = node_->Clone();
        }
        auto excluded = [&](const std::u16string& name) {
            for (SNB p = snbExclude; p && *p; ++p)
                if (mw::U16EqualNoCase(*p, name)) return true;
            return false;
        };
        HRESULT hr = pstgDest->SetClass(snapshot->clsid);
        if (FAILED(hr)) return hr;
        for (const auto& c : snapshot->children) {
            if (excluded(c->name) || (c->isStorage ? skipStorages : skipStreams)) continue;
            hr = CopyNode(*c, pstgDest);
            if (FAILED(hr)) return hr;
        }
        return S_OK;
    }

    STDMETHODIMP MoveElementTo(const OLECHAR*, IStorage*, const OLECHAR*, DWORD) override {
        return STG_E_UNIMPLEMENTEDFUNCTION;
    }

    STDMETHODIMP Commit(DWORD) override {
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (!isRoot_) return S_OK;  // storages below the root write through to it
        if (!CanWrite(mode_)) return STG_E_ACCESSDENIED;
        HRESULT hr = FlushDoc(*doc_);
        if (SUCCEEDED(hr) && doc_->transacted) doc_->committed = doc_->root->Clone();
        return hr;
    }

    STDMETHODIMP Revert() override {
        std::lock_guard lock(doc_->mutex);
        if (!isRoot_ || !doc_->transacted) return S_OK;
        // Every object opened below the root is invalidated; the root continues on the last
        // committed state.
        auto fresh = doc_->committed->Clone();
        fresh->opened = node_->opened;
        doc_->root = fresh;
        node_ = fresh;
        generation_ = ++doc_->generation;
        return S_OK;
    }

    STDMETHODIMP EnumElements(DWORD reserved1, void* reserved2, DWORD reserved3,
                              IEnumSTATSTG** ppenum) override {
        if (!ppenum) return STG_E_INVALIDPOINTER;
        *ppenum = nullptr;
        if (reserved1 || reserved2 || reserved3) return STG_E_INVALIDPARAMETER;
        auto items = std::shared_ptr<std::vector<STATSTG>>(new std::vector<STATSTG>,
                                                           [](std::vector<STATSTG>* v) {
                                                               for (auto& s : *v)
                                                                   CoTaskMemFree(s.pwcsName);
                                                               delete v;
                                                           });
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        for (const auto& c : node_->children) {
            STATSTG st;
            FillStat(*c, 0, STATFLAG_DEFAULT, &st);
            items->push_back(st);
        }
        *ppenum = new StatEnumerator(std::move(items), 0);
        return S_OK;
    }

    STDMETHODIMP DestroyElement(const OLECHAR* pwcsName) override {
        if (!pwcsName) return STG_E_INVALIDNAME;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (!CanWrite(mode_)) return STG_E_ACCESSDENIED;
        auto& ch = node_->children;
        auto it = std::find_if(ch.begin(), ch.end(), [&](const auto& c) {
            return mw::U16EqualNoCase(c->name, pwcsName);
        });
        if (it == ch.end()) return STG_E_FILENOTFOUND;
        if ((*it)->opened) return STG_E_ACCESSDENIED;
        ch.erase(it);
        return S_OK;
    }

    STDMETHODIMP RenameElement(const OLECHAR* pwcsOldName, const OLECHAR* pwcsNewName) override {
        if (!pwcsOldName || !ValidElementName(pwcsNewName)) return STG_E_INVALIDNAME;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (!CanWrite(mode_)) return STG_E_ACCESSDENIED;
        auto node = node_->Child(pwcsOldName);
        if (!node) return STG_E_FILENOTFOUND;
        if (node_->Child(pwcsNewName)) return STG_E_FILEALREADYEXISTS;
        if (node->opened) return STG_E_ACCESSDENIED;
        node->name = pwcsNewName;
        return S_OK;
    }

    STDMETHODIMP SetElementTimes(const OLECHAR* pwcsName, const FILETIME* pctime,
                                 const FILETIME* patime, const FILETIME* pmtime) override {
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        auto node = pwcsName ? node_->Child(pwcsName) : node_;
        if (!node) return STG_E_FILENOTFOUND;
        if (pctime) node->ctime = *pctime;
        if (patime) node->atime = *patime;
        if (pmtime) node->mtime = *pmtime;
        return S_OK;
    }

    STDMETHODIMP SetClass(REFCLSID clsid) override {
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (!CanWrite(mode_)) return STG_E_ACCESSDENIED;
        node_->clsid = clsid;
        return S_OK;
    }

    STDMETHODIMP SetStateBits(DWORD grfStateBits, DWORD grfMask) override {
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        if (!CanWrite(mode_)) return STG_E_ACCESSDENIED;
        node_->stateBits = (node_->stateBits & ~grfMask) | (grfStateBits & grfMask);
        return S_OK;
    }

    STDMETHODIMP Stat(STATSTG* pstatstg, DWORD grfStatFlag) override {
        if (!pstatstg) return STG_E_INVALIDPOINTER;
        std::lock_guard lock(doc_->mutex);
        if (generation_ != doc_->generation) return STG_E_REVERTED;
        FillStat(*node_, mode_, grfStatFlag, pstatstg);
        if (isRoot_ && !(grfStatFlag & STATFLAG_NONAME)) {
            CoTaskMemFree(pstatstg->pwcsName);
            pstatstg->pwcsName = mw::CoTaskMemDup(mw::Utf8ToUtf16(doc_->path));
        }
        return S_OK;
    }

private:
    // Elements below a storage are opened exclusively and without transactions.
    static HRESULT CheckChildMode(DWORD grfMode, bool creating) {
        if (!ValidAccess(grfMode)) return STG_E_INVALIDFLAG;
        if ((grfMode & kShareMask) != STGM_SHARE_EXCLUSIVE) return STG_E_INVALIDFLAG;
        if (grfMode & (STGM_TRANSACTED | STGM_DELETEONRELEASE | STGM_PRIORITY))
            return STG_E_INVALIDFUNCTION;
        if (!creating && (grfMode & (STGM_CREATE | STGM_CONVERT))) return STG_E_INVALIDFLAG;
        return S_OK;
    }

    // A new child node for CreateStream/CreateStorage; caller holds the mutex.
    std::shared_ptr<Node> Replaceable(const OLECHAR* name, DWORD grfMode, HRESULT* hr) {
        *hr = S_OK;
        auto& ch = node_->children;
        auto it = std::find_if(ch.begin(), ch.end(),
                               [&](const auto& c) { return mw::U16EqualNoCase(c->name, name); });
        if (it != ch.end()) {
            if (!(grfMode & STGM_CREATE)) {
                *hr = STG_E_FILEALREADYEXISTS;
                return nullptr;
            }
            if ((*it)->opened) {
                *hr = STG_E_ACCESSDENIED;
                return nullptr;
            }
            ch.erase(it);
        }
        auto n = std::make_shared<Node>();
        n->name = name;
        n->ctime = n->mtime = n->atime = Now();
        ch.push_back(n);
        return n;
    }

    static HRESULT CopyNode(const Node& c, IStorage* dest) {
        constexpr DWORD kMode = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
        if (!c.isStorage) {
            ComPtr<IStream> s;
            HRESULT hr =
                dest->CreateStream(c.name.c_str(), kMode, 0, 0, s.ReleaseAndGetAddressOf());
            if (FAILED(hr)) return hr;
            return c.data.empty()
                       ? S_OK
                       : s->Write(c.data.data(), static_cast<ULONG>(c.data.size()), nullptr);
        }
        ComPtr<IStorage> sub;
        HRESULT hr = dest->CreateStorage(c.name.c_str(), kMode, 0, 0, sub.ReleaseAndGetAddressOf());
        if (FAILED(hr)) return hr;
        hr = sub->SetClass(c.clsid);
        for (const auto& g : c.children)
            if (SUCCEEDED(hr)) hr = CopyNode(*g, sub.Get());
        return hr;
    }

    std::shared_ptr<Doc> doc_;
    std::shared_ptr<Node> node_;
    DWORD mode_;
    bool isRoot_;
    uint64_t generation_;
};

std::string PathOf(const WCHAR* name) {
    return mw::Utf16ToUtf8(name);
}

HRESULT OpenRoot(std::shared_ptr<Doc> doc, DWORD grfMode, IStorage** ppstg) {
    doc->transacted = (grfMode & STGM_TRANSACTED) != 0;
    doc->deleteOnRelease = (grfMode & STGM_DELETEONRELEASE) != 0;
    doc->committed = doc->root->Clone();
    doc->root->opened = 1;
    *ppstg = new Storage(doc, doc->root, grfMode & ~(STGM_CREATE | STGM_CONVERT), true, 0);
    return S_OK;
}

}  // namespace

HRESULT WINAPI StgCreateDocfile(const WCHAR* pwcsName, DWORD grfMode, DWORD reserved,
                                IStorage** ppstgOpen) {
    if (!ppstgOpen) return STG_E_INVALIDPOINTER;
    *ppstgOpen = nullptr;
    if (reserved != 0) return STG_E_INVALIDPARAMETER;
    if (!ValidAccess(grfMode) || !CanWrite(grfMode)) return STG_E_INVALIDFLAG;
    if ((grfMode & STGM_CREATE) && (grfMode & STGM_CONVERT)) return STG_E_INVALIDFLAG;
    auto doc = std::make_shared<Doc>();
    doc->root = std::make_shared<Node>();
    doc->root->isStorage = true;
    doc->root->ctime = doc->root->mtime = doc->root->atime = Now();
    if (pwcsName) {
        doc->path = PathOf(pwcsName);
        if (doc->path.empty()) return STG_E_INVALIDNAME;
        struct stat st {};
        if (::stat(doc->path.c_str(), &st) == 0) {
            if (S_ISDIR(st.st_mode)) return STG_E_ACCESSDENIED;
            if (!(grfMode & (STGM_CREATE | STGM_CONVERT))) return STG_E_FILEALREADYEXISTS;
        }
        if (!doc->share.Claim(doc->path, grfMode)) return STG_E_SHAREVIOLATION;
    } else {
        // A temporary docfile: a unique file that goes with the storage.
        const char* tmp = std::getenv("TMPDIR");
        std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/mwdocfile-XXXXXX";
        std::vector<char> name(tmpl.begin(), tmpl.end());
        name.push_back('\0');
        int fd = ::mkstemp(name.data());
        if (fd < 0) return ErrnoToStg(errno);
        ::close(fd);
        doc->path = name.data();
        grfMode |= STGM_DELETEONRELEASE;
    }
    // The file exists (as an empty compound file) from now on, as on the platform; a path that
    // cannot be written fails here and leaves nothing behind.
    HRESULT hr = FlushDoc(*doc);
    if (FAILED(hr)) return hr;
    return OpenRoot(std::move(doc), grfMode, ppstgOpen);
}

HRESULT WINAPI StgOpenStorage(const WCHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode,
                              SNB snbExclude, DWORD reserved, IStorage** ppstgOpen) {
    if (!ppstgOpen) return STG_E_INVALIDPOINTER;
    *ppstgOpen = nullptr;
    if (reserved != 0 || pstgPriority || snbExclude) return STG_E_INVALIDPARAMETER;
    if (!pwcsName) return STG_E_INVALIDNAME;
    if (!ValidAccess(grfMode) || (grfMode & (STGM_CREATE | STGM_CONVERT))) return STG_E_INVALIDFLAG;
    auto doc = std::make_shared<Doc>();
    doc->path = PathOf(pwcsName);
    std::vector<uint8_t> bytes;
    HRESULT hr = ReadWholeFile(doc->path, &bytes);
    if (SUCCEEDED(hr) && !doc->share.Claim(doc->path, grfMode)) hr = STG_E_SHAREVIOLATION;
    if (FAILED(hr)) return hr;
    hr = ParseFile(bytes, &doc->root);
    if (FAILED(hr)) return hr;
    return OpenRoot(std::move(doc), grfMode, ppstgOpen);
}

HRESULT WINAPI StgIsStorageFile(const WCHAR* pwcsName) {
    if (!pwcsName) return STG_E_INVALIDNAME;
    std::vector<uint8_t> bytes;
    HRESULT hr = ReadWholeFile(PathOf(pwcsName), &bytes);
    if (FAILED(hr)) return hr;
    return bytes.size() >= 512 &&
                   std::memcmp(bytes.data(), kDocfileSignature, sizeof kDocfileSignature) == 0
               ? S_OK
               : S_FALSE;
}

HRESULT WINAPI ReadClassStg(IStorage* pStg, CLSID* pclsid) {
    if (!pStg || !pclsid) return E_INVALIDARG;
    STATSTG st;
    HRESULT hr = pStg->Stat(&st, STATFLAG_NONAME);
    if (FAILED(hr)) return hr;
    *pclsid = st.clsid;
    return S_OK;
}

HRESULT WINAPI WriteClassStg(IStorage* pStg, REFCLSID rclsid) {
    if (!pStg) return E_INVALIDARG;
    return pStg->SetClass(rclsid);
}
