// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/memory.h"
#include "tests/temp.h"

#include <errno.h>
#include <signal.h>
#include <sys/wait.h>

#include <string>
#include <vector>

namespace {

// "path|ext,ext|mime" for each codec of the registry, in its order.
std::vector<std::string> codecs(const img_lib_handle &handle) {
    const auto join = [](const char *list) {
        std::string text;
        for (; list && *list; list += strlen(list) + 1) text += (text.empty() ? "" : ",") + std::string{list};
        return text;
    };
    std::vector<std::string> all;
    for (const img_codec *codec = handle.head; codec; codec = codec->next)
        all.push_back(std::string{codec->path} + "|" + join(codec->extensions) + "|" + join(codec->mime_types));
    return all;
}

struct Result {
    img_status status;
    std::vector<std::string> codecs;
    std::string log;
};

Result attach(const char *path) {
    setenv("PICTRA_CFGFILE", path, 1);
    imglog_flags = 1;
    testing::internal::CaptureStderr();
    img_lib_handle *handle;
    const img_status status = img_lib_attach(&handle);
    Result result{status, codecs(*handle), testing::internal::GetCapturedStderr()};
    imglog_flags = 0;
    img_lib_detach(handle);
    return result;
}

Result read(const std::string &text) { return attach(TempFile{text}.path()); }

std::string statistics(int errors, int sections, int skipped, int status = -1) {
    char text[200];
    snprintf(text, sizeof text,
             "pictra:img_cfg_read(143): cfg_errors = %d, n_lines = %d, n_skipped = %d, status = %d\n", errors, sections,
             skipped, status);
    return text;
}

using Strings = std::vector<std::string>;

TEST(Config, SectionsBecomeCodecsNewestFirst) {
    const Result r = read("\n  [ /a.so ] trailing\n ext = png : x\nmime\t=image/png\nmime=image/a:image/b\n\n"
                          "[/b.so\next=\n[]]\nmime=\n");
    EXPECT_EQ(r.status, IMG_ST_OK);
    EXPECT_EQ(r.codecs, (Strings{"]||", "/b.so||", "/a.so|png , x|image/a,image/b"}));
    EXPECT_EQ(r.log, "");
}

TEST(Config, FieldsKeepTheirFirstCharacters) {
    const Result r =
        read("[" + std::string(300, 'p') + "]\next=" + std::string(200, 'e') + "\nmime=" + std::string(40, 'm') + "\n");
    EXPECT_EQ(r.codecs, (Strings{std::string(255, 'p') + "|" + std::string(127, 'e') + "|" + std::string(31, 'm')}));
}

TEST(Config, ErrorsAreCountedAndNothingIsLost) {
    Result r = read("[/a.so]\nEXT=png\n[/b.so]\n# no comments here\n# but = is a key\n");
    EXPECT_EQ(r.status, IMG_ST_CONFIG);
    EXPECT_EQ(r.codecs, (Strings{"/b.so||", "/a.so||"}));
    EXPECT_EQ(r.log, statistics(2, 2, 1));

    r = read("\n \t\n");
    EXPECT_EQ(r.status, IMG_ST_CONFIG);
    EXPECT_EQ(r.log, statistics(0, 0, 0));

    // A line of 1023 characters and the rest of it are two lines.
    r = read("[/a.so]\n" + std::string(1023, 'x') + "ext=png\n");
    EXPECT_EQ(r.codecs, (Strings{"/a.so|png|"}));
    EXPECT_EQ(r.log, statistics(0, 1, 1));
}

TEST(Config, MissingFile) {
    for (const char *path : {"/nonexistent/img.conf", ""}) {
        const Result r = attach(path);
        EXPECT_EQ(r.status, IMG_ST_CONFIG);
        EXPECT_TRUE(r.codecs.empty());
        EXPECT_EQ(r.log, "pictra:img_cfg_read(152): Error: fopen(" + std::string{path} +
                             ", \"r\") was NULL. errno=" + std::to_string(ENOENT) + "\n");
    }
}

TEST(Config, AFileThatBeginsWithAKeyIsReadForEver) {
    const TempFile file{"ext=png\n[/a.so]\n"};
    const pid_t child = fork();
    if (child == 0) {
        img_lib_handle handle{};
        img_cfg_read(&handle, file.path());
        _exit(0);
    }
    usleep(100000);
    int status;
    EXPECT_EQ(waitpid(child, &status, WNOHANG), 0);
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
}

TEST(Config, FailingAllocations) {
    const TempFile good{"[/a.so]\next=a\nmime=b\n[/b.so]\n"}, bad{"[/a.so]\nx=1\n"};
    const auto attach_quietly = [](const char *path, size_t n, const memory::Watch &watch) {
        setenv("PICTRA_CFGFILE", path, 1);
        img_lib_handle *handle;
        const img_status status = img_lib_attach(&handle);
        EXPECT_EQ(handle == nullptr, n == 1);
        img_lib_detach(handle);
        EXPECT_EQ(watch.live(), 0u);
        return status;
    };
    const size_t count = memory::for_each_failure([&](size_t n, const memory::Watch &watch) {
        const img_status status = attach_quietly(good.path(), n, watch);
        EXPECT_EQ(status, watch.failed() ? IMG_ST_NOMEM : IMG_ST_OK) << n;
    });
    EXPECT_EQ(count, 7u) << "handle; path, record and two lists; path and record";
    memory::for_each_failure([&](size_t n, const memory::Watch &watch) {
        EXPECT_EQ(attach_quietly(bad.path(), n, watch), n == 1 ? IMG_ST_NOMEM : IMG_ST_CONFIG) << n;
    });
}

TEST(Log, CutsLongMessagesAndKeepsErrno) {
    imglog_flags = 1;
    testing::internal::CaptureStderr();
    errno = EDOM;
    imglog(2, "f", -7, 0, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(errno, EDOM);
    imglog_flags = 0;
    imglog(99, "f", 1, 0, "not printed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "pictra:f(-7): " + std::string(4095, 'x') + "\n");
    EXPECT_EQ(imglog_verbose, 8u);
    EXPECT_EQ(enable_output, 1u);
}

} // namespace
