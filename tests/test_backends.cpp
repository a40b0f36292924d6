// SPDX-License-Identifier: MIT
#include "pictra/backend.h"
#include "tests/memory.h"
#include "tests/temp.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>

namespace {

std::string read(io_handle *h, uint32_t n) {
    std::string text(n, '?');
    text.resize(h->read(h->self, text.data(), n));
    return text;
}

TEST(FdBackend, SeekableFilesEndAtTheirSize) {
    const TempFile file{"0123456789"};
    const int fd = open(file.path(), O_RDONLY);
    lseek(fd, 2, SEEK_SET);
    io_handle *h = io_open(IO_FD, IO_READ, fd);
    EXPECT_EQ(h->self->limit, 8u);
    EXPECT_EQ(h->self->buffer_size, 2048u);
    EXPECT_EQ(read(h, 3), "234");
    EXPECT_EQ(h->skip(h->self, 2), 0);
    EXPECT_EQ(h->unskip(h->self, 8), -1) << "not before the stream's start";
    h->self->buffer_size = 2; // from here directly, with lseek
    EXPECT_EQ(read(h, 4), "789");
    EXPECT_EQ(h->unread(h->self, "", 6), 0);
    EXPECT_EQ(read(h, 2), "45");
    EXPECT_EQ(h->unskip(h->self, 3), 0);
    EXPECT_EQ(read(h, 9), "3456789");
    io_close(h);

    h = io_open(IO_FD, IO_READ, fd);
    EXPECT_EQ(h->self->limit, 0u) << "at the end";
    EXPECT_EQ(read(h, 1), "");
    io_close(h);
    EXPECT_EQ(close(fd), 0) << "still the caller's";
}

TEST(FdBackend, FilesOfFourGigabytes) {
    const TempFile file;
    const int fd = open(file.path(), O_RDWR);
    ASSERT_EQ(ftruncate(fd, 0x100000000), 0);
    EXPECT_EQ(io_open(IO_FD, IO_READ, fd), nullptr);
    lseek(fd, 2, SEEK_SET);
    io_handle *h = io_open(IO_FD, IO_READ, fd);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->self->limit, 0xfffffffe);
    EXPECT_EQ(h->skip(h->self, 0xfffffff0), 0);
    EXPECT_EQ(read(h, 20).size(), 14u);
    io_close(h);
    close(fd);
}

TEST(FdBackend, PipesHaveNoEndAndOnlyGoForward) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_EQ(write(fds[1], "abcdef", 6), 6);
    io_handle *h = io_open(IO_FD, IO_READ, fds[0]);
    EXPECT_EQ(h->self->limit, UINT32_MAX);
    EXPECT_EQ(h->self->backend_skip, nullptr);
    EXPECT_EQ(h->self->backend_unread, nullptr);
    EXPECT_EQ(h->self->backend_unskip, nullptr);
    EXPECT_EQ(read(h, 2), "ab");
    EXPECT_EQ(h->unread(h->self, "ab", 2), 0);
    EXPECT_EQ(read(h, 6), "abcdef");
    io_close(h);
    close(fds[0]);
    close(fds[1]);
}

TEST(FdBackend, Writes) {
    const TempFile file;
    const int fd = open(file.path(), O_WRONLY);
    io_handle *h = io_open(IO_FD, IO_WRITE, fd);
    EXPECT_EQ(h->write(h->self, "hello", 5), 5u);
    EXPECT_EQ(file.content(), "");
    EXPECT_EQ(h->seek(h->self, -4, SEEK_CUR), 1);
    EXPECT_EQ(h->write(h->self, "E", 1), 1u);
    io_close(h);
    EXPECT_EQ(file.content(), "hEllo");
    close(fd);

    h = io_open(IO_FD, IO_WRITE, fd); // closed: every write fails
    EXPECT_EQ(h->write(h->self, "x", 1), 1u);
    EXPECT_EQ(io_ostream_flush(h->self), -1);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(h->seek(h->self, 0, SEEK_SET), -1);
    io_close(h);
}

TEST(MemBackend, DeliversTheAreaInPlace) {
    char bytes[] = "0123456789";
    io_handle *h = io_open(IO_MEM, IO_READ, uint32_t{10}, bytes);
    uint32_t size = 99;
    EXPECT_EQ(h->ctl(h->self, IO_CTL_SETBUF, &size), 0);
    EXPECT_EQ(h->ctl(h->self, IO_CTL_SETLIMIT, nullptr), 0);
    EXPECT_EQ(size, 99u) << "success, and no change";
    EXPECT_EQ(read(h, 4), "0123");
    EXPECT_EQ(h->unread(h->self, "23", 2), 0);
    EXPECT_EQ(h->skip(h->self, 9), -1);
    io_ctl_buf lent;
    EXPECT_EQ(h->ctl(h->self, IO_CTL_GETBUF, &lent), 0);
    EXPECT_EQ(lent.data, reinterpret_cast<uint8_t *>(bytes) + 2);
    EXPECT_EQ(lent.length, 8u);
    EXPECT_EQ(h->unskip(h->self, 10), 0);
    EXPECT_EQ(read(h, 16), "0123456789");
    EXPECT_EQ(read(h, 16), "");
    EXPECT_EQ(h->ctl(h->self, IO_CTL_GETBUF, &lent), 0);
    EXPECT_EQ(lent.length, 0u);
    io_close(h);
    EXPECT_STREQ(bytes, "0123456789");

    EXPECT_EQ(io_open(IO_MEM, IO_WRITE, uint32_t{10}, bytes), nullptr);
    EXPECT_EQ(errno, ENOTSUP);
}

TEST(MemBackend, ChainsDeliverTheirFirstBlock) {
    io_mem_block second{nullptr, 2, {'x', 'y'}}, first{&second, 4, {'a', 'b', 'c', 'd'}};
    io_handle *h = io_open(IO_MEM, IO_READ, uint32_t{0}, &first);
    EXPECT_EQ(read(h, 9), "abcd");
    EXPECT_EQ(read(h, 9), "");
    io_stream &s = *h->self; // the chain's own operation goes on
    EXPECT_EQ(s.backend_read(s.handle, nullptr, 0), 2u);
    EXPECT_EQ(s.limit, 2u);
    s.limit = 0;
    EXPECT_EQ(s.backend_read(s.handle, nullptr, 0), 0u);
    EXPECT_EQ(s.backend_read(s.handle, nullptr, 0), 0u);
    s.position = 0;
    EXPECT_EQ(read(h, 9), "xy");
    io_close(h);

    h = io_open(IO_MEM, IO_READ, uint32_t{0}, nullptr);
    EXPECT_EQ(read(h, 9), "") << "an empty chain";
    io_close(h);
    const size_t count = memory::for_each_failure([&](size_t, const memory::Watch &watch) {
        io_handle *opened = io_open(IO_MEM, IO_READ, uint32_t{0}, &first);
        EXPECT_EQ(opened == nullptr, watch.failed());
        io_close(opened);
        EXPECT_EQ(watch.live(), 0u);
    });
    EXPECT_EQ(count, 2u);
}

} // namespace
