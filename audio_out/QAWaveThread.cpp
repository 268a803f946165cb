// The wave device thread: the device's callback queues, this thread delivers.
#include "audio_out/QAWaveThread.h"

#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "winmem.h"

namespace {

// The live wave threads by the instance number given to waveOutOpen. A callback holds the
// table's mutex while it pushes, and a thread leaves the table when it is terminated, so a
// message can never reach a thread that is being freed.
struct InstanceTable {
    std::mutex Mutex;
    std::unordered_map<DWORD_PTR, TQAWaveThread*> Threads;
    DWORD_PTR Next = 1;
};

InstanceTable& Instances() {
    static InstanceTable* table = new InstanceTable;  // devices may call back until exit
    return *table;
}

thread_local TQAWaveThread* tCurrentWaveThread = nullptr;

// Nodes come from the global heap, which is safe to use in the device's callback. A thread
// keeps the nodes it delivered for its next records, so that a steady stream does not go to
// the heap (and its lock, shared with the device's thread) for every buffer.
PQAWaveItemNode NewNode() {
    HGLOBAL mem = GlobalAlloc(GMEM_FIXED, sizeof(TQAWaveItemNode));
    auto* node = new (GlobalLock(mem)) TQAWaveItemNode;
    node->HMem = mem;
    return node;
}

void FreeNode(PQAWaveItemNode node) {
    HGLOBAL mem = node->HMem;
    node->~TQAWaveItemNode();
    GlobalUnlock(mem);
    GlobalFree(mem);
}

}  // namespace

void CALLBACK WaveCallback(HWAVEOUT hwo, UINT uMsg, DWORD_PTR dwInstance, DWORD_PTR dwParam1,
                           DWORD_PTR) {
    if (dwInstance == 0) return;
    InstanceTable& table = Instances();
    std::lock_guard lock(table.Mutex);
    auto it = table.Threads.find(dwInstance);
    if (it == table.Threads.end()) return;
    it->second->PushRecord(uMsg, hwo, reinterpret_cast<WAVEHDR*>(dwParam1));
}

TQAWaveThread::TQAWaveThread(TComponent* owner, TQAWaveProcessMessage onProcess)
    : TBasicThread(owner, "TQAWaveThread"),
      FOnProcess(std::move(onProcess)),
      FSemaphore(MwNew<TSemaphore>(0, 2000)),
      FSection(MwNew<TCriticalSection>()) {
    TThread::SetPriority(tpHighest);
    InstanceTable& table = Instances();
    std::lock_guard lock(table.Mutex);
    FInstance = table.Next++;
    table.Threads.emplace(FInstance, this);
}

TQAWaveThread::~TQAWaveThread() {
    Unregister();
    ClearRecords();
    if (Started() && !Finished() && !IsCurrentThread()) TQAWaveThread::Terminate();
    FreeNodes(std::exchange(FFreeNodes, nullptr));
}

void TQAWaveThread::Unregister() {
    InstanceTable& table = Instances();
    std::lock_guard lock(table.Mutex);
    table.Threads.erase(FInstance);
}

bool TQAWaveThread::QueryOther(REFIID riid, void** ppv) {
    if (IsEqualIID(riid, IID_IQAWaveThread)) {
        *ppv = static_cast<IQAWaveThread*>(this);
        return true;
    }
    return TBasicThread::QueryOther(riid, ppv);
}

TQAWaveThread* TQAWaveThread::Current() {
    return tCurrentWaveThread;
}

void TQAWaveThread::PushRecord(uint32_t uMsg, HWAVEOUT hwo, WAVEHDR* header) {
    if (IsTerminated()) return;
    FSection->Enter();
    PQAWaveItemNode node = FFreeNodes;
    if (node) {
        FFreeNodes = node->Next;
    } else {
        FSection->Leave();
        node = NewNode();
        FSection->Enter();
    }
    node->Next = nullptr;
    node->hwo = hwo;
    node->uMsg = uMsg;
    node->WaveHdr = header;
    if (FLastNode)
        FLastNode->Next = node;
    else
        FFirstNode = node;
    FLastNode = node;
    FSection->Leave();
    // Released after the section: the thread it wakes takes the section first thing, and would
    // only wait for this one to leave it. Past the maximum count the release is refused; the
    // node waits for a later wake-up.
    FSemaphore->ReleaseCount(1);
}

bool TQAWaveThread::PopRecord(uint32_t& uMsg, HWAVEOUT& hwo, WAVEHDR*& header) {
    FSection->Enter();
    PQAWaveItemNode node = FFirstNode;
    if (node) {
        uMsg = node->uMsg;
        hwo = node->hwo;
        header = node->WaveHdr;
        FFirstNode = node->Next;
        if (!FFirstNode) FLastNode = nullptr;
        node->Next = FFreeNodes;
        FFreeNodes = node;
    }
    FSection->Leave();
    return node != nullptr;
}

void TQAWaveThread::ClearRecords() {
    FSection->Enter();
    PQAWaveItemNode node = FFirstNode;
    FFirstNode = FLastNode = nullptr;
    FSection->Leave();
    FreeNodes(node);
}

void TQAWaveThread::FreeNodes(PQAWaveItemNode node) {
    while (node) {
        PQAWaveItemNode next = node->Next;
        FreeNode(node);
        node = next;
    }
}

void TQAWaveThread::Terminate() {
    // Out of the table first: no callback pushes into this thread from now on.
    Unregister();
    TBasicThread::Terminate();
    FSemaphore->ReleaseCount(1);
    TThread::WaitFor();
}

void TQAWaveThread::IntExecute() {
    tCurrentWaveThread = this;
    while (!IsTerminated()) {
        FSemaphore->WaitFor(INFINITE);
        if (IsTerminated()) break;
        uint32_t uMsg = 0;
        HWAVEOUT hwo = nullptr;
        WAVEHDR* header = nullptr;
        Lock();
        bool got = PopRecord(uMsg, hwo, header);
        if (IsTerminated()) {
            Unlock();
            break;
        }
        Unlock();
        if (!got) continue;
        if (FOnProcess) FOnProcess(uMsg, hwo, header);
    }
    uint32_t uMsg;
    HWAVEOUT hwo;
    WAVEHDR* header;
    while (PopRecord(uMsg, hwo, header)) {
    }
    tCurrentWaveThread = nullptr;
}

// ---- TQAAudioParams

TQAAudioParams::TQAAudioParams() : FSection(MwNew<TCriticalSection>()) {}
