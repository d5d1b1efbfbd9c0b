#include "FaultVfs.h"

#include <sqlite3.h>

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace {

struct ShimFile {
    sqlite3_file base;
    sqlite3_file* real;
    std::string name;
};

struct State {
    std::mutex mutex;
    std::map<std::string, QByteArray> durable;
    std::map<std::string, int> opens;
    std::atomic<bool> failLog{false};
    std::atomic<int> busyWriteLocks{0};
    sqlite3_vfs* real = nullptr;
    sqlite3_vfs vfs;
    sqlite3_io_methods methods;
};

State& state() {
    static State s;
    return s;
}

sqlite3_file* real(sqlite3_file* file) {
    return reinterpret_cast<ShimFile*>(file)->real;
}

bool isLog(const std::string& name) {
    return name.size() > 4 && name.compare(name.size() - 4, 4, "-wal") == 0;
}

// The whole file as the real VFS holds it now.
QByteArray contents(sqlite3_file* file) {
    sqlite3_int64 size = 0;
    if (file->pMethods->xFileSize(file, &size) != SQLITE_OK || size <= 0)
        return QByteArray();
    QByteArray bytes(int(size), '\0');
    if (file->pMethods->xRead(file, bytes.data(), int(size), 0) != SQLITE_OK)
        return QByteArray();
    return bytes;
}

int shimClose(sqlite3_file* file) {
    auto* shim = reinterpret_cast<ShimFile*>(file);
    const int rc = shim->real->pMethods ? shim->real->pMethods->xClose(shim->real) : SQLITE_OK;
    shim->name.~basic_string();
    return rc;
}
int shimRead(sqlite3_file* f, void* b, int n, sqlite3_int64 o) {
    return real(f)->pMethods->xRead(real(f), b, n, o);
}
int shimWrite(sqlite3_file* f, const void* b, int n, sqlite3_int64 o) {
    if (state().failLog && isLog(reinterpret_cast<ShimFile*>(f)->name))
        return SQLITE_IOERR_WRITE;
    return real(f)->pMethods->xWrite(real(f), b, n, o);
}
int shimTruncate(sqlite3_file* f, sqlite3_int64 size) {
    return real(f)->pMethods->xTruncate(real(f), size);
}
int shimSync(sqlite3_file* f, int flags) {
    const int rc = real(f)->pMethods->xSync(real(f), flags);
    auto* shim = reinterpret_cast<ShimFile*>(f);
    if (rc == SQLITE_OK && !shim->name.empty()) {
        const QByteArray bytes = contents(shim->real);
        std::lock_guard<std::mutex> lock(state().mutex);
        state().durable[shim->name] = bytes;
    }
    return rc;
}
int shimFileSize(sqlite3_file* f, sqlite3_int64* size) {
    return real(f)->pMethods->xFileSize(real(f), size);
}
int shimLock(sqlite3_file* f, int level) {
    return real(f)->pMethods->xLock(real(f), level);
}
int shimUnlock(sqlite3_file* f, int level) {
    return real(f)->pMethods->xUnlock(real(f), level);
}
int shimCheckReservedLock(sqlite3_file* f, int* out) {
    return real(f)->pMethods->xCheckReservedLock(real(f), out);
}
int shimFileControl(sqlite3_file* f, int op, void* arg) {
    return real(f)->pMethods->xFileControl(real(f), op, arg);
}
int shimSectorSize(sqlite3_file* f) {
    return real(f)->pMethods->xSectorSize(real(f));
}
int shimDeviceCharacteristics(sqlite3_file* f) {
    return real(f)->pMethods->xDeviceCharacteristics(real(f));
}
int shimShmMap(sqlite3_file* f, int page, int size, int extend, void volatile** out) {
    return real(f)->pMethods->xShmMap(real(f), page, size, extend, out);
}
int shimShmLock(sqlite3_file* f, int offset, int n, int flags) {
    const int rc = real(f)->pMethods->xShmLock(real(f), offset, n, flags);
    // Slot 0 of the shared-memory locks is the write-ahead log's writer lock.
    const int exclusive = SQLITE_SHM_LOCK | SQLITE_SHM_EXCLUSIVE;
    if (rc == SQLITE_BUSY && offset == 0 && (flags & exclusive) == exclusive)
        ++state().busyWriteLocks;
    return rc;
}
void shimShmBarrier(sqlite3_file* f) {
    real(f)->pMethods->xShmBarrier(real(f));
}
int shimShmUnmap(sqlite3_file* f, int deleteFlag) {
    return real(f)->pMethods->xShmUnmap(real(f), deleteFlag);
}
int shimFetch(sqlite3_file* f, sqlite3_int64 offset, int amount, void** out) {
    return real(f)->pMethods->xFetch(real(f), offset, amount, out);
}
int shimUnfetch(sqlite3_file* f, sqlite3_int64 offset, void* page) {
    return real(f)->pMethods->xUnfetch(real(f), offset, page);
}

int shimOpen(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
    auto* shim = reinterpret_cast<ShimFile*>(file);
    shim->base.pMethods = nullptr;
    shim->real = reinterpret_cast<sqlite3_file*>(shim + 1);
    const int rc = state().real->xOpen(state().real, name, shim->real, flags, outFlags);
    if (rc != SQLITE_OK)
        return rc;
    new (&shim->name) std::string(name ? name : "");
    shim->base.pMethods = &state().methods;
    if (name) {
        // A file that was on the disk before is durable as it is.
        const QByteArray bytes = contents(shim->real);
        std::lock_guard<std::mutex> lock(state().mutex);
        state().durable.emplace(name, bytes);
        ++state().opens[name];
    }
    return SQLITE_OK;
}

int shimDelete(sqlite3_vfs*, const char* name, int syncDir) {
    {
        std::lock_guard<std::mutex> lock(state().mutex);
        state().durable.erase(name);
    }
    return state().real->xDelete(state().real, name, syncDir);
}
int shimAccess(sqlite3_vfs*, const char* name, int flags, int* out) {
    return state().real->xAccess(state().real, name, flags, out);
}
int shimFullPathname(sqlite3_vfs*, const char* name, int n, char* out) {
    return state().real->xFullPathname(state().real, name, n, out);
}
void* shimDlOpen(sqlite3_vfs*, const char* name) {
    return state().real->xDlOpen(state().real, name);
}
void shimDlError(sqlite3_vfs*, int n, char* out) {
    state().real->xDlError(state().real, n, out);
}
void (*shimDlSym(sqlite3_vfs*, void* handle, const char* symbol))(void) {
    return state().real->xDlSym(state().real, handle, symbol);
}
void shimDlClose(sqlite3_vfs*, void* handle) {
    state().real->xDlClose(state().real, handle);
}
int shimRandomness(sqlite3_vfs*, int n, char* out) {
    return state().real->xRandomness(state().real, n, out);
}
int shimSleep(sqlite3_vfs*, int micro) {
    return state().real->xSleep(state().real, micro);
}
int shimCurrentTime(sqlite3_vfs*, double* out) {
    return state().real->xCurrentTime(state().real, out);
}
int shimGetLastError(sqlite3_vfs*, int n, char* out) {
    return state().real->xGetLastError(state().real, n, out);
}
int shimCurrentTimeInt64(sqlite3_vfs*, sqlite3_int64* out) {
    return state().real->xCurrentTimeInt64(state().real, out);
}

void build(State& s) {
    s.real = sqlite3_vfs_find(nullptr);
    std::memset(&s.vfs, 0, sizeof(s.vfs));
    s.vfs.iVersion = 2;
    s.vfs.szOsFile = int(sizeof(ShimFile)) + s.real->szOsFile;
    s.vfs.mxPathname = s.real->mxPathname;
    s.vfs.zName = "faultvfs";
    s.vfs.xOpen = shimOpen;
    s.vfs.xDelete = shimDelete;
    s.vfs.xAccess = shimAccess;
    s.vfs.xFullPathname = shimFullPathname;
    s.vfs.xDlOpen = shimDlOpen;
    s.vfs.xDlError = shimDlError;
    s.vfs.xDlSym = shimDlSym;
    s.vfs.xDlClose = shimDlClose;
    s.vfs.xRandomness = shimRandomness;
    s.vfs.xSleep = shimSleep;
    s.vfs.xCurrentTime = shimCurrentTime;
    s.vfs.xGetLastError = shimGetLastError;
    s.vfs.xCurrentTimeInt64 = shimCurrentTimeInt64;
    std::memset(&s.methods, 0, sizeof(s.methods));
    s.methods.iVersion = 3;
    s.methods.xClose = shimClose;
    s.methods.xRead = shimRead;
    s.methods.xWrite = shimWrite;
    s.methods.xTruncate = shimTruncate;
    s.methods.xSync = shimSync;
    s.methods.xFileSize = shimFileSize;
    s.methods.xLock = shimLock;
    s.methods.xUnlock = shimUnlock;
    s.methods.xCheckReservedLock = shimCheckReservedLock;
    s.methods.xFileControl = shimFileControl;
    s.methods.xSectorSize = shimSectorSize;
    s.methods.xDeviceCharacteristics = shimDeviceCharacteristics;
    s.methods.xShmMap = shimShmMap;
    s.methods.xShmLock = shimShmLock;
    s.methods.xShmBarrier = shimShmBarrier;
    s.methods.xShmUnmap = shimShmUnmap;
    s.methods.xFetch = shimFetch;
    s.methods.xUnfetch = shimUnfetch;
}

}  // namespace

void FaultVfs::install() {
    static std::once_flag once;
    std::call_once(once, [] {
        sqlite3_initialize();
        build(state());
        sqlite3_vfs_register(&state().vfs, 1);
    });
}

void FaultVfs::failLogWrites(bool fail) {
    state().failLog = fail;
}

int FaultVfs::busyWriteLocks() {
    return state().busyWriteLocks;
}

int FaultVfs::opened(const QString& part) {
    const std::string wanted = part.toStdString();
    std::lock_guard<std::mutex> lock(state().mutex);
    int count = 0;
    for (const auto& entry : state().opens) {
        if (entry.first.find(wanted) != std::string::npos)
            count += entry.second;
    }
    return count;
}

bool FaultVfs::durableImage(const QString& path, QByteArray* image) {
    std::lock_guard<std::mutex> lock(state().mutex);
    const auto it = state().durable.find(path.toStdString());
    if (it == state().durable.end())
        return false;
    *image = it->second;
    return true;
}
