// Linux (POSIX) side of the platform layer.
#include "platform/platform.h"
#include "platform/registry_file.h"
#include "platform/test_hooks.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quorin {
void onProcessDetach(bool threadsGone); // device/lifecycle.cpp
}

namespace quorin::platform {
namespace {

// A heap is a list of its blocks, so that destroying it frees them all.
struct BlockHeader {
    BlockHeader *prev;
    BlockHeader *next;
    std::max_align_t align[1];
};
constexpr std::size_t kHeaderSize = offsetof(BlockHeader, align);

struct HeapState {
    std::mutex lock;
    BlockHeader *head = nullptr;
};

} // namespace

Heap heapCreate(std::size_t)
{
    return new (std::nothrow) HeapState;
}

void heapDestroy(Heap heap)
{
    auto *h = static_cast<HeapState *>(heap);
    if (h == nullptr)
        return;
    for (BlockHeader *b = h->head; b != nullptr;) {
        BlockHeader *next = b->next;
        std::free(b);
        b = next;
    }
    delete h;
}

void *heapAllocZeroed(Heap heap, std::size_t bytes)
{
    auto *h = static_cast<HeapState *>(heap);
    if (h == nullptr || !hooks::allocationAllowed())
        return nullptr;
    auto *b = static_cast<BlockHeader *>(std::calloc(1, kHeaderSize + bytes));
    if (b == nullptr)
        return nullptr;
    hooks::blockTaken();
    std::lock_guard<std::mutex> guard(h->lock);
    b->prev = nullptr;
    b->next = h->head;
    if (h->head != nullptr)
        h->head->prev = b;
    h->head = b;
    return reinterpret_cast<unsigned char *>(b) + kHeaderSize;
}

void heapFree(Heap heap, void *block)
{
    auto *h = static_cast<HeapState *>(heap);
    if (h == nullptr || block == nullptr)
        return;
    auto *b = reinterpret_cast<BlockHeader *>(static_cast<unsigned char *>(block) - kHeaderSize);
    std::lock_guard<std::mutex> guard(h->lock);
    if (b->prev != nullptr)
        b->prev->next = b->next;
    else
        h->head = b->next;
    if (b->next != nullptr)
        b->next->prev = b->prev;
    std::free(b);
    hooks::blockReturned();
}

void *virtualCommit(std::size_t bytes)
{
    if (!hooks::allocationAllowed())
        return nullptr;
    void *p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED)
        return nullptr;
    hooks::blockTaken();
    return p;
}

void virtualRelease(void *memory, std::size_t bytes)
{
    if (memory != nullptr) {
        munmap(memory, bytes);
        hooks::blockReturned();
    }
}

void sleepMs(std::uint32_t milliseconds)
{
    if (hooks::pausesSkipped())
        return;
    timespec ts{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

// ---- Files and folders ---------------------------------------------------

namespace {

std::string envFolder(const char *variable, const char *fallbackBelowHome)
{
    const char *v = std::getenv(variable);
    if (v != nullptr && v[0] == '/')
        return v;
    const char *home = std::getenv("HOME");
    if (home == nullptr || home[0] == '\0')
        return {};
    std::string path = home;
    if (path.back() != '/')
        path += '/';
    return path + fallbackBelowHome;
}

std::string stripTrailingSlashes(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

bool readWholeFile(const std::string &path, std::string &out)
{
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (f == nullptr)
        return false;
    char buf[8192];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0)
        out.append(buf, n);
    bool ok = std::ferror(f) == 0;
    std::fclose(f);
    return ok;
}

} // namespace

std::string localAppDataFolder()
{
    return stripTrailingSlashes(envFolder("XDG_DATA_HOME", ".local/share"));
}

char pathSeparator()
{
    return '/';
}

bool isDirectory(const std::string &path)
{
    struct stat st;
    return !path.empty() && stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool makeDirectories(const std::string &path)
{
    if (path.empty())
        return false;
    std::string partial;
    std::size_t pos = 0;
    while (pos <= path.size()) {
        std::size_t next = path.find('/', pos);
        if (next == std::string::npos)
            next = path.size();
        partial = path.substr(0, next);
        if (!partial.empty() && !isDirectory(partial)) {
            if (mkdir(partial.c_str(), 0777) != 0 && errno != EEXIST)
                return false;
        }
        pos = next + 1;
    }
    return isDirectory(path);
}

bool replaceFile(const std::string &path, const void *bytes, std::size_t size)
{
    std::string tmpl = path + ".XXXXXX";
    int fd = mkstemp(tmpl.data());
    if (fd < 0)
        return false;
    const auto *p = static_cast<const unsigned char *>(bytes);
    std::size_t left = size;
    bool ok = true;
    while (left > 0) {
        ssize_t n = write(fd, p, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            ok = false;
            break;
        }
        p += n;
        left -= static_cast<std::size_t>(n);
    }
    // The new file takes the old one's permissions, or the usual ones.
    struct stat old;
    mode_t mode = stat(path.c_str(), &old) == 0 ? (old.st_mode & 07777) : 0644;
    ok = ok && fchmod(fd, mode) == 0 && fsync(fd) == 0;
    ok = (close(fd) == 0) && ok;
    if (ok && std::rename(tmpl.c_str(), path.c_str()) == 0)
        return true;
    unlink(tmpl.c_str());
    return false;
}

// ---- Registry ------------------------------------------------------------

namespace {

std::string registryFolder()
{
    std::string base = stripTrailingSlashes(envFolder("XDG_CONFIG_HOME", ".config"));
    return base.empty() ? base : base + "/kavrion";
}

RegistryDocument loadRegistry(bool *damaged = nullptr)
{
    std::string folder = registryFolder();
    std::string text;
    bool wellFormed = true;
    RegistryDocument doc;
    if (!folder.empty() && readWholeFile(folder + "/registry.reg", text))
        doc = RegistryDocument::parse(text, &wellFormed);
    if (damaged != nullptr)
        *damaged = !wellFormed;
    return doc;
}

// An open key: the values as they were read at open plus the changes made
// through it, which are merged into the file when the key is closed.
struct OpenKey {
    std::string path;
    bool writable; // opened by registryCreateKey
    RegistryFileKey view;
    std::vector<RegistryValue> changes;
};

bool openKey(const char *path, RegistryKey *key, bool create)
{
    if (path == nullptr || key == nullptr)
        return false;
    try {
        RegistryDocument doc = loadRegistry();
        const RegistryFileKey *found = doc.find(path);
        if (!create && !doc.exists(path))
            return false;
        auto k = std::make_unique<OpenKey>();
        k->path = path;
        k->writable = create;
        if (found != nullptr)
            k->view = *found;
        k->view.path = path;
        *key = k.release();
        return true;
    } catch (...) {
        return false;
    }
}

} // namespace

bool registryCreateKey(const char *path, RegistryKey *key)
{
    return openKey(path, key, true);
}

bool registryOpenKey(const char *path, RegistryKey *key)
{
    return openKey(path, key, false);
}

bool registryQueryValue(RegistryKey key, const char *name, std::uint32_t *type, std::uint8_t *data,
                        std::uint32_t *size)
{
    auto *k = static_cast<OpenKey *>(key);
    if (k == nullptr || name == nullptr)
        return false;
    const RegistryValue *v = k->view.find(name);
    if (v == nullptr)
        return false;
    auto stored = static_cast<std::uint32_t>(v->data.size());
    if (data != nullptr) {
        if (size == nullptr || *size < stored) {
            if (size != nullptr)
                *size = stored;
            return false;
        }
        if (stored != 0)
            std::memcpy(data, v->data.data(), stored);
    }
    if (size != nullptr)
        *size = stored;
    if (type != nullptr)
        *type = v->type;
    return true;
}

bool registrySetValue(RegistryKey key, const char *name, std::uint32_t type, const std::uint8_t *data,
                      std::uint32_t size)
{
    auto *k = static_cast<OpenKey *>(key);
    if (k == nullptr || !k->writable || name == nullptr || (data == nullptr && size != 0))
        return false;
    try {
        RegistryValue v{name, type, std::vector<std::uint8_t>(data, data + size)};
        k->view.set(v);
        k->changes.push_back(std::move(v));
        return true;
    } catch (...) {
        return false;
    }
}

bool registryCloseKey(RegistryKey key)
{
    std::unique_ptr<OpenKey> k(static_cast<OpenKey *>(key));
    if (!k || !k->writable)
        return true; // reading never writes the file
    try {
        // A created key is kept even without values, as the system registry keeps it.
        bool damaged = false;
        RegistryDocument doc = loadRegistry(&damaged);
        if (doc.exists(k->path) && k->changes.empty())
            return true;
        RegistryFileKey &target = doc.findOrCreate(k->path);
        for (auto &v : k->changes)
            target.set(std::move(v));
        std::string folder = registryFolder();
        if (folder.empty() || !makeDirectories(folder))
            return false;
        const std::string file = folder + "/registry.reg";
        if (damaged) // keep what could not be read, rather than write over it
            std::rename(file.c_str(), (file + ".damaged").c_str());
        std::string text = doc.serialise();
        return replaceFile(file, text.data(), text.size());
    } catch (...) {
        return false;
    }
}

std::uint32_t processorCount()
{
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0)
        return static_cast<std::uint32_t>(CPU_COUNT(&set));
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<std::uint32_t>(online) : 1;
}

namespace {

struct ThreadStart {
    void (*entry)(void *);
    void *arg;
};

void *threadTrampoline(void *start)
{
    const ThreadStart s = *static_cast<ThreadStart *>(start);
    delete static_cast<ThreadStart *>(start);
    s.entry(s.arg);
    return nullptr;
}

} // namespace

Thread threadStart(void (*entry)(void *), void *arg)
{
    auto *start = new (std::nothrow) ThreadStart{entry, arg};
    auto *thread = new (std::nothrow) pthread_t;
    if (start == nullptr || thread == nullptr || pthread_create(thread, nullptr, threadTrampoline, start) != 0) {
        delete start;
        delete thread;
        return nullptr;
    }
    return thread;
}

void threadJoin(Thread thread)
{
    auto *t = static_cast<pthread_t *>(thread);
    pthread_join(*t, nullptr);
    delete t;
}

bool threadEndAtUnload(Thread thread)
{
    threadJoin(thread);
    return true;
}

bool threadsEndByThemselvesAtUnload()
{
    return true;
}

} // namespace quorin::platform

// The unload hook: runs when the library is unloaded or the process ends.
__attribute__((destructor)) static void quorinUnload()
{
    quorin::onProcessDetach(false);
}
