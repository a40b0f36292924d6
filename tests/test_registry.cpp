// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/memory.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

img_status no_functions(img_codec_funcs *table, size_t size) {
    EXPECT_EQ(size, 56u);
    table->decode_finish = [](io_handle *, void **) -> img_status { return 77; };
    return IMG_ST_OK;
}
img_status failing(img_codec_funcs *, size_t) { return 5; }

class Registry : public testing::Test {
protected:
    ~Registry() override {
        while (handle.head) img_codec_deregister(&handle, handle.head);
    }
    img_codec *add(const char *extensions, const char *mime_types = nullptr) {
        return img_codec_register(&handle, no_functions, extensions, mime_types);
    }
    std::vector<img_codec *> by_extension(const char *path) {
        std::vector<img_codec *> found(9);
        found.resize(img_codec_list_byext(&handle, path, found.data(), 9));
        return found;
    }
    img_lib_handle handle{};
};

using Codecs = std::vector<img_codec *>;

TEST_F(Registry, LooksUpByExtensionAndMimeType) {
    img_codec *a = add("png:x:JPG", "image/png:image/x"), *b = add("x", ""), *c = add(nullptr, "IMAGE/X");
    EXPECT_EQ(by_extension("/dir.png/name.X"), (Codecs{b, a}));
    EXPECT_EQ(by_extension("a.b.jpg"), Codecs{a});
    for (const char *path : {"png", "x.", "a.png.", "a.p", "a.pngx", ""})
        EXPECT_EQ(by_extension(path), Codecs{}) << path;
    img_codec *found[2] = {};
    EXPECT_EQ(img_codec_list_bymime(&handle, "Image/x", found, 1), 2u);
    EXPECT_EQ(found[0], c);
    EXPECT_EQ(found[1], nullptr);
    const char *extensions, *mime_types;
    img_codec_get_criteria(a, &extensions, nullptr);
    EXPECT_EQ(std::string(extensions, 11), std::string("png\0x\0JPG\0\0", 11));
    img_codec_get_criteria(b, nullptr, &mime_types);
    EXPECT_EQ(mime_types, nullptr);
}

TEST_F(Registry, ListsNewestFirstWithoutTheExcluded) {
    Codecs all;
    for (int i = 0; i < 5; i++) all.push_back(add("x"));
    img_codec *exclude[] = {all[3], all[0]}, *out[5] = {};
    EXPECT_EQ(img_codec_list(&handle, nullptr, 0, nullptr, 0), 5u);
    EXPECT_EQ(img_codec_list(&handle, out, 1, exclude, 2), 3u);
    EXPECT_EQ((Codecs{out, out + 2}), (Codecs{all[4], nullptr}));
    img_codec_deregister(&handle, all[2]);
    EXPECT_EQ(img_codec_list(&handle, out, 5, exclude, 2), 2u);
    EXPECT_EQ((Codecs{out, out + 2}), (Codecs{all[4], all[1]}));

    img_lib_handle other{};
    img_codec *stranger = img_codec_register(&other, no_functions, "x", nullptr);
    other.head = nullptr;
    img_codec_deregister(&handle, stranger); // released all the same
    EXPECT_EQ(img_codec_list(&handle, nullptr, 0, nullptr, 0), 4u);
}

TEST_F(Registry, RegisteredFunctionsNeedNoModule) {
    img_codec *codec = add("x");
    ASSERT_NE(codec->funcs.decode_finish, nullptr);
    EXPECT_EQ(img_decode_finish(codec, nullptr, nullptr), IMG_ST_OK) << "not initialised yet";
    EXPECT_EQ(codec_init(codec), IMG_ST_OK);
    EXPECT_EQ(img_decode_finish(codec, nullptr, nullptr), 77u);
    EXPECT_EQ(img_codec_register(&handle, failing, "x", "y"), nullptr);
    EXPECT_EQ(handle.head, codec);
}

TEST_F(Registry, FailingAllocations) {
    memory::for_each_failure([&](size_t, const memory::Watch &watch) {
        img_codec *codec = img_codec_register_dll(&handle, "/a.so", "a:b", "c");
        EXPECT_EQ(codec == nullptr, watch.failed());
        if (codec) img_codec_deregister(&handle, codec);
        EXPECT_EQ(watch.live(), 0u);
        EXPECT_EQ(handle.head, nullptr);
    });
}

TEST_F(Registry, ModulesOpenOnce) {
    struct Case {
        const char *path;
        img_status first;
        bool filled;
    };
    for (const auto &[path, first, filled] :
         {Case{FAKE_MODULE_GOOD, IMG_ST_OK, true}, Case{FAKE_MODULE_FAILING, 42, false},
          Case{FAKE_MODULE_NO_ENTRY, IMG_ST_MODULE, false}, Case{"/nonexistent.so", IMG_ST_MODULE, false}}) {
        img_codec *codec = img_codec_register_dll(&handle, path, "x", nullptr);
        EXPECT_EQ(codec->state, 0u);
        EXPECT_EQ(codec_init(codec), first) << path;
        EXPECT_EQ(codec_init(codec), IMG_ST_OK) << "never tried again";
        EXPECT_EQ(codec->funcs.decode_validate != nullptr, filled);
        EXPECT_EQ(codec->module != nullptr, filled);
        EXPECT_EQ(img_decode_validate(&codec, 1, nullptr, nullptr), filled ? IMG_ST_OK : IMG_ST_NOTSUP);
        img_codec_deregister(&handle, codec);
        EXPECT_EQ(dlopen(path, RTLD_NOW | RTLD_NOLOAD), nullptr) << "closed again";
    }
}

} // namespace
