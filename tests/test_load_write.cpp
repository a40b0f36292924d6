// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/fake_codec.h"
#include "tests/image.h"
#include "tests/memory.h"
#include "tests/temp.h"

#include <sys/stat.h>

namespace {

class LoadWrite : public testing::Test {
protected:
    LoadWrite() {
        script = {};
        script.width = script.height = 2;
        script.formats = {FMT_G8};
        script.pixels = {1, 2, 3, 4};
        image.data = script.pixels.data();
        image.stride = 2;
    }
    ~LoadWrite() override {
        while (handle.head) img_codec_deregister(&handle, handle.head);
    }
    // Loads into an empty record and forgets the picture.
    img_status load(const char *path) {
        script.log.clear();
        img_record record{};
        const img_status status = img_load_file(&handle, path, nullptr, &record);
        if (record.flags & IMG_F_DIRECT) free(record.data);
        return status;
    }
    img_status write(const char *path) {
        script.log.clear();
        return img_write_file(&handle, path, nullptr, &image);
    }

    img_lib_handle handle{};
    img_record image = a_record(IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT, FMT_G8, 2, 2);
};

TEST_F(LoadWrite, CodecsOfTheExtensionAreAskedFirst) {
    const TempFile file{"x", ".bare"};
    EXPECT_EQ(load("/nonexistent.bare"), IMG_ST_FILE);
    EXPECT_EQ(load(file.path()), IMG_ST_NOCODEC) << "empty registry";
    img_codec_register(&handle, bare_codec, "bare", nullptr);
    EXPECT_EQ(load(file.path()), IMG_ST_NOTSUP);
    img_codec_register(&handle, fake_codec, "fake", nullptr);
    EXPECT_EQ(load(file.path()), IMG_ST_OK) << "in the second pass";
    EXPECT_EQ(script.log, "validate begin frame finish");
    script.validate = IMG_ST_WRONGFORMAT;
    EXPECT_EQ(load(file.path()), IMG_ST_NOTSUP) << "the answer of the extension's codecs stands";
    EXPECT_EQ(script.log, "validate");
    EXPECT_EQ(load(TempFile{"x"}.path()), IMG_ST_NOCODEC);
    EXPECT_EQ(load(TempFile("x", ".FAKE").path()), IMG_ST_WRONGFORMAT);
}

TEST_F(LoadWrite, FinishFollowsEveryFrameAndTheFirstFailureWins) {
    img_codec_register(&handle, fake_codec, "fake", nullptr);
    struct Case {
        img_status begin, frame, finish, result;
        const char *log;
    };
    const TempFile file{"x", ".fake"}, target{"old", ".fake"};
    for (const Case &c : {Case{0, 0, 0, 0, "begin frame finish"}, Case{21, 0, 0, 21, "begin"},
                          Case{0, 22, 23, 22, "begin frame finish"}, Case{0, 0, 23, 23, "begin frame finish"}}) {
        script.begin = c.begin;
        script.frame = c.frame;
        script.finish = c.finish;
        EXPECT_EQ(load(file.path()), c.result);
        EXPECT_EQ(script.log, std::string{"validate "} + c.log);
        script.log.clear();
        img_record record{};
        EXPECT_EQ(img_load(&handle, nullptr, nullptr, &record), c.result);
        EXPECT_EQ(script.log, std::string{"validate "} + c.log);
        // A failed frame frees the picture; a failed finish comes after it was handed over.
        EXPECT_EQ(bool(record.flags & IMG_F_DIRECT), !c.begin && !c.frame);
        if (record.flags & IMG_F_DIRECT) free(record.data);

        EXPECT_EQ(write(target.path()), c.result);
        EXPECT_EQ(target.exists(), c.result == 0) << "a failed write leaves no file";
        EXPECT_EQ(script.log.substr(0, 5), "begin");
    }
}

TEST_F(LoadWrite, WritesWithTheNewestCodecOfTheExtension) {
    EXPECT_EQ(write("/tmp/x.fake"), IMG_ST_NOCODEC);
    img_codec_register(&handle, bare_codec, "fake", nullptr);
    EXPECT_EQ(write("/nonexistent/x.fake"), IMG_ST_FILE);
    const TempFile target{"old content", ".fake"};
    EXPECT_EQ(write(target.path()), IMG_ST_NOTSUP);
    EXPECT_FALSE(target.exists());
    img_codec_register(&handle, fake_codec, "fake", nullptr);
    const mode_t mask = umask(027);
    EXPECT_EQ(write(target.path()), IMG_ST_OK);
    umask(mask);
    EXPECT_EQ(target.content(), std::string("\1\2\3\4"));
    struct stat status;
    ASSERT_EQ(stat(target.path(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST_F(LoadWrite, FailingAllocations) {
    img_codec_register(&handle, bare_codec, "fake", nullptr);
    img_codec_register(&handle, fake_codec, "other", nullptr);
    const TempFile file{"x", ".fake"}, target{"", ".other"};
    const size_t loads = memory::for_each_failure([&](size_t n, const memory::Watch &watch) {
        const img_status status = load(file.path());
        // Without the second list, what the extension's codecs said is the answer.
        EXPECT_EQ(status, !watch.failed() ? IMG_ST_OK : n == 3 ? IMG_ST_NOTSUP : IMG_ST_NOMEM) << n;
        EXPECT_EQ(watch.live(), 0u);
    });
    EXPECT_EQ(loads, 4u) << "stream, two lists, picture";
    const size_t writes = memory::for_each_failure([&](size_t n, const memory::Watch &watch) {
        EXPECT_EQ(write(target.path()), n == 1 ? IMG_ST_NOMEM : IMG_ST_OK) << n;
        EXPECT_EQ(target.exists(), n != 1);
        EXPECT_EQ(watch.live(), 0u);
    });
    EXPECT_EQ(writes, 2u) << "stream, and its buffer, without which it writes directly";
    script.log.clear();
    const memory::Watch watch(1);
    img_record record{};
    EXPECT_EQ(img_load(&handle, nullptr, nullptr, &record), IMG_ST_NOMEM);
}

} // namespace
