// Real files loaded by four threads at once and finished on others: the same as on one thread.
#pragma once

#include <array>
#include <deque>
#include <mutex>
#include <thread>

#include "tests/files.h"

struct REAL_FILE {
    std::string Path;
    BYTES Bytes;
};

// The files of tests/data, and of the folder named by CORPUS, that are known by their bytes.
template <typename Known>
std::vector<REAL_FILE> FilesKnown(const Known &known)
{
    std::vector<REAL_FILE> files;
    const char *corpus = std::getenv("CORPUS");
    for (const char *folder : {TEST_DATA, corpus})
        for (const auto &entry : folder ? std::filesystem::recursive_directory_iterator(folder)
                                        : std::filesystem::recursive_directory_iterator())
            if (entry.is_regular_file() && entry.file_size() < 4000000) {
                BYTES bytes = ReadFile(entry.path());
                if (known(bytes))
                    files.push_back({entry.path(), std::move(bytes)});
            }
    return files;
}

// `load(file, fromMemory, rules)` returns what `finish` unloads and tells as text. Each thread
// loads all files in its own way.
template <typename Load, typename Finish>
void ExpectFourAsOne(const std::vector<REAL_FILE> &files, const Load &load, const Finish &finish)
{
    ASSERT_GT(files.size(), 30u);
    const auto loadBy = [&](size_t i, size_t way) {
        return load(files[i], way > 1, static_cast<uint8_t>(way % 2));
    };
    std::vector<std::array<std::string, 4>> expected(files.size());
    for (size_t i = 0; i < files.size(); i++)
        for (size_t way = 0; way < 4; way++) {
            expected[i][way] = finish(loadBy(i, way));
            EXPECT_EQ(expected[i][way], expected[i][way % 2]) << files[i].Path << ", from memory";
        }

    struct WAITING {
        size_t File, Way;
        decltype(loadBy(0, 0)) Loaded;
    };
    std::mutex mutex;
    std::deque<WAITING> waiting;
    std::atomic<size_t> finished = 0;
    const auto finishAllBut = [&](size_t left) {
        for (std::unique_lock lock(mutex); waiting.size() > left; lock.lock()) {
            const WAITING next = waiting.front();
            waiting.pop_front();
            lock.unlock();
            EXPECT_EQ(finish(next.Loaded), expected[next.File][next.Way]) << files[next.File].Path;
            finished++;
        }
    };
    std::vector<std::thread> threads;
    for (size_t way = 0; way < 4; way++)
        threads.emplace_back([&, way] {
            for (size_t n = 0; n < files.size(); n++) {
                const size_t i = (n + way * files.size() / 4) % files.size();
                WAITING next{i, way, loadBy(i, way)};
                {
                    const std::lock_guard lock(mutex);
                    waiting.push_back(std::move(next));
                }
                finishAllBut(4);  // mostly loads of other threads
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    finishAllBut(0);  // the threads that loaded these have ended
    EXPECT_EQ(finished, 4 * files.size());
}
