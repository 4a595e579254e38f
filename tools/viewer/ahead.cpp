#include "tools/viewer/ahead.h"

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include <sys/resource.h>

using FILE_POINTER = std::shared_ptr<const VIEWER_FILE>;

// Guarded by `lock`.
static std::mutex lock;
static std::condition_variable changed;
static std::vector<AHEAD_KEY> wanted;
static std::set<AHEAD_KEY> busy;
static std::map<AHEAD_KEY, FILE_POINTER> done;
static std::vector<FILE_POINTER> forgotten;  // freed on a thread, since that takes a while
static bool ending;

static std::vector<std::thread> threads;

// The first key that is neither done nor in work; null if none is.
static const AHEAD_KEY *Next()
{
    const auto next = std::ranges::find_if(
        wanted, [](const AHEAD_KEY &key) { return !done.contains(key) && !busy.contains(key); });
    return next == wanted.end() ? nullptr : &*next;
}

static void Work(uint8_t rules)
{
    Picture_Rules = rules;
    setpriority(PRIO_PROCESS, 0, 5);  // on Linux this thread's priority: drawing comes first
    std::unique_lock guard(lock);
    for (;;) {
        changed.wait(guard, [] { return ending || !forgotten.empty() || Next(); });
        if (ending)
            return;
        std::vector<FILE_POINTER> garbage = std::exchange(forgotten, {});
        const AHEAD_KEY *next = Next();  // may be dereferenced only while locked
        const AHEAD_KEY key = next ? *next : AHEAD_KEY{};
        if (next)
            busy.insert(key);
        guard.unlock();
        garbage.clear();
        FILE_POINTER file = next ? Viewer_Open(key.Path, key.Depth, key.Page) : nullptr;
        guard.lock();
        busy.erase(key);
        if (!next)
            continue;
        if (std::ranges::find(wanted, key) != wanted.end())
            done[key] = std::move(file);
        else
            forgotten.push_back(std::move(file));
    }
}

void Ahead_Start()
{
    const unsigned count = std::clamp(std::thread::hardware_concurrency(), 2u, 4u) - 1;
    ending = false;
    for (unsigned i = 0; i < count; i++)
        threads.emplace_back(Work, Picture_Rules);
}

void Ahead_Stop()
{
    {
        const std::scoped_lock guard(lock);
        ending = true;
    }
    changed.notify_all();
    for (std::thread &thread : threads)
        thread.join();
    threads.clear();
    wanted.clear();
    done.clear();
    forgotten.clear();
}

void Ahead_Want(std::vector<AHEAD_KEY> keys)
{
    const std::set<AHEAD_KEY> kept(keys.begin(), keys.end());
    {
        const std::scoped_lock guard(lock);
        wanted = std::move(keys);
        for (auto i = done.begin(); i != done.end();) {
            if (kept.contains(i->first)) {
                ++i;
            } else {
                forgotten.push_back(std::move(i->second));
                i = done.erase(i);
            }
        }
    }
    changed.notify_all();
}

FILE_POINTER Ahead_Find(const AHEAD_KEY &key)
{
    const std::scoped_lock guard(lock);
    const auto found = done.find(key);
    return found == done.end() ? nullptr : found->second;
}

size_t Ahead_Done()
{
    const std::scoped_lock guard(lock);
    return done.size();
}
