// SPDX-License-Identifier: MIT
#include "tests/fake_backend.h"
#include "tests/memory.h"
#include "tests/transcript.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <random>

namespace {

const std::string text = "abcdefghijklmnopqrstuvwxyz";

struct Stream {
    explicit Stream(FakeBackend &fake, uint32_t mode = IO_READ)
        : backend(fake), h(io_open(FakeBackend::make, mode, &fake)) {}
    ~Stream() { io_close(h); }
    io_stream &operator*() const { return *h->self; }

    void goes(const std::string &transcript) const { EXPECT_EQ(play(h, transcript, &backend.log), transcript); }

    FakeBackend &backend;
    io_handle *h;
};

TEST(StreamOpen, RefusesBadArguments) {
    FakeBackend b;
    for (const uint32_t mode : {0u, 3u}) {
        errno = 0;
        EXPECT_EQ(io_open(FakeBackend::make, mode, &b), nullptr);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(io_open(nullptr, IO_READ), nullptr);
    EXPECT_EQ(io_open([](io_stream *, va_list *) { return 1; }, IO_READ), nullptr);
    io_close(nullptr);
    const memory::Watch watch(1);
    EXPECT_EQ(io_open(FakeBackend::make, IO_READ, &b), nullptr);
}

TEST(StreamOpen, OperationsOfTheOtherModeFail) {
    FakeBackend b{.data = text};
    Stream r{b}, w{b, IO_WRITE};
    EXPECT_EQ(w.h->unskip, nullptr);
    const auto bad = [](auto result, auto expected) {
        EXPECT_EQ(result, decltype(result)(expected));
        EXPECT_EQ(errno, EBADF);
        errno = 0;
    };
    bad(io_stream_read(&*w, nullptr, 1), 0);
    bad(io_stream_skip(&*w, 1), -1);
    bad(io_stream_unread(&*w, "", 0), -1);
    bad(io_ostream_write(&*r, "", 1), 0);
    bad(io_ostream_seek(&*r, 0, 0), -1);
    bad(io_ostream_read(&*r, nullptr, 1), 0);
    EXPECT_EQ(b.log, "");
}

TEST(StreamRead, BuffersSmallRequestsAndPassesLargeOnes) {
    FakeBackend b{.data = text};
    const Stream s{b};
    s.goes("r0= r3=abc[r8=8] c=3,5,8,-9");
    s.goes("r7=defghij[r8=8] c=2,6,16,-17"); // the buffer's rest and one refill
    s.goes("r15=klmnopqrstuvwxy[r9=9]");     // as large as the buffer: directly
    b.most = 1;
    s.goes("r5=z[r8=1] r5=[r8=0]"); // a short read is not tried again
}

TEST(StreamRead, StopsAtTheLimit) {
    FakeBackend b{.data = text};
    const Stream s{b};
    EXPECT_EQ(s.h->ctl(s.h->self, IO_CTL_SETLIMIT, reinterpret_cast<void *>(uintptr_t{0x100000005})), 0) << "32 bits";
    s.goes("l0=-1");
    EXPECT_EQ(errno, EPERM);
    s.goes("r3=abc[r5=5] s3=-1 c=3,2,5,0 r20=de r20= r2=");
}

TEST(StreamUnread, RewindsTheBufferOrTheBackend) {
    FakeBackend b{.data = text, .unreads = true};
    const Stream s{b};
    s.goes("r3=abc[r8=8] uXX=0 r3=bcd"); // the buffer's own bytes, not those handed back
    s.goes("r9=efghijklm[r8=8] uefghijklm=0[u3=1,u9=1] c=0,0,4,-5");
    s.goes("u12345=-1 r4=efgh[r8=8]"); // not more than was read
}

TEST(StreamUnread, PushesBackWhatTheBackendCannotTake) {
    FakeBackend b{.data = text};
    const Stream s{b};
    s.goes("r10=abcdefghij[r10=10] r2=kl[r8=8] ughijkl=0");
    EXPECT_EQ((*s).pushback_capacity, 6u);
    s.goes("c=0,8,18,-19 r2=gh r9=ijklklmno"); // what was consumed comes again
    s.goes("u0123456789=0 uAB=0");             // after those before
    s.goes("s9=0 r15=123456789ABklmn");        // the buffer's 8 are counted, one pushed back is dropped
    const memory::Watch watch(1);
    s.goes("u0123456789ABCDEF=-1");
}

TEST(StreamSkip, UsesTheBackendAndForgetsTheBuffer) {
    FakeBackend b{.data = text, .skips = true, .unreads = true, .unskips = true};
    const Stream s{b};
    s.goes("s3=0[s3=1] c=8,0,3,-4 ubc=0[u2=1] r2=bc[r8=8] b1=0 r1=c"); // without a buffer, back to the backend
    s.goes("s10=0[s4=1] r9=nopqrstuv[r9=9] b17=0[b17=1] s30=-1[s30=0] b30=-1 r9=fghijklmn[r9=9]");
}

TEST(StreamSkip, ReadsThroughABackendThatCannot) {
    for (const char *transcript : {
             "s8=0[r8=8] r3=abc",                           // a whole chunk counts as skipped but stays in the buffer
             "s12=0[r8=8] r3=efg",                          // what is left is taken from the chunk that was read
             "s16=0[r8=8] r3=ijk[r8=8]",                    // as much as is left stops it early
             "s3=-1[r8=8,r8=8,r8=8,r8=2,r8=0] r3=yz[r8=0]", // a chunk beyond the rest wraps and reads on
             "s40=-1[r8=8,r8=8,r8=8,r8=2,r8=0] r3=yz[r8=0]",
         }) {
        FakeBackend b{.data = text};
        Stream{b}.goes(transcript);
    }
    FakeBackend b{.data = text, .buffer_size = 0};
    Stream{b}.goes("s1=-1"); // unbuffered
}

TEST(StreamCtl, BackendIsAskedFirstAndUnknownCodesFail) {
    FakeBackend b;
    const Stream s{b};
    (*s).backend_ctl = [](intptr_t, uint32_t code, void *) { return code == 9 ? 0 : -1; };
    EXPECT_EQ(s.h->ctl(s.h->self, 9, nullptr), 0);
    EXPECT_EQ(s.h->ctl(s.h->self, 4, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(StreamCtl, LendsTheBuffer) {
    FakeBackend b{.data = text};
    const Stream s{b};
    s.goes("g=failed[r8=0]"); // no buffer yet, and none is made
    s.goes("r3=abc[r8=8] g=defgh g=ijklmnop[r8=8] c=8,0,16,-17");
    s.goes("unop=0 g=nop g=qrstuvwx[r8=8] g=yz[r8=2] g=[r8=0]");
}

TEST(StreamFlush, NeedsABuffer) {
    FakeBackend b{.data = text, .skips = true};
    const Stream s{b};
    s.goes("s3=0[s3=1] c=8,0,3,-4"); // counted as consumed before there is a buffer
    errno = 0;
    EXPECT_EQ(io_ostream_flush(&*s), -1);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(b.take_log(), "");
    s.goes("c=8,0,3,-4 r2=de[r8=8]");
}

TEST(StreamCtl, ResizesTheBuffer) {
    FakeBackend b{.data = text}, longer{.data = text + text}, sink;
    const Stream s{b}, l{longer}, w{sink, IO_WRITE};
    s.goes("n8=0,8 r3=abc[r8=8] n20=0,8 n7=0,20 c=3,5,8,-9"); // the five unread bytes after the first three stay
    s.goes("r6=defghi[r7=7] r2=jk n2=0,7[r3=3] r7=pqrlmno");  // flushed first, which reads over what was consumed
    s.goes("n1=0,2[r7=7] r7=stuvwxy n0=-1,1[r7=1]");          // and finds less than that
    EXPECT_EQ(errno, EFBIG);
    l.goes("r7=abcdefg[r8=8] n4=0,8[r7=7] c=0,8,15,-16");
    w.goes("wabc=3 n4=0,8 wdefgh=5 c=8,0,0,-1 n0=0,4[w8=8] we=1[w1=1]"); // room that was promised stays, too
}

TEST(StreamWrite, BuffersFlushesAndSeeks) {
    FakeBackend b;
    {
        const Stream s{b, IO_WRITE};
        s.goes("wabc=3 wdefghij=7[w8=8] c=2,6,8,-9 w0123456789ABCDEF=16[w8=8,w10=10]");
        s.goes("wx=1 k-4=4886718345[w1=1,k2=4294967292]");
        char data[] = "rb";
        EXPECT_EQ(s.h->read_back(s.h->self, data, 2), 2u) << "the write operation";
        s.goes("wyz=2[w2=2]");
        EXPECT_EQ((*s).limit, UINT32_MAX - 27) << "which the last two did not touch";
    }
    EXPECT_EQ(b.log, "w2=2 x0=0");
    EXPECT_EQ(b.data, "abcdefghij0123456789ABCDEFxrbyz");
}

TEST(StreamWrite, ShortWritesAndLimits) {
    FakeBackend b{.most = 3};
    const Stream s{b, IO_WRITE};
    s.goes("l7=0 wabcdefgh=3[w7=3] wijklm=5"); // as large as the buffer: directly, up to the limit
    errno = 0;
    EXPECT_EQ(io_ostream_flush(&*s), -1);
    EXPECT_EQ(errno, EFBIG);
    s.goes("c=2,6,6,1[w4=3] w0123456789=6[w1=1] k0=-1[w0=0]"); // the rest waits
    EXPECT_EQ(b.data, "abcijkl");
}

TEST(StreamMemory, WithoutABufferEverythingGoesDirectly) {
    FakeBackend in{.data = text}, out;
    const Stream r{in}, w{out, IO_WRITE};
    const memory::Watch watch(1);
    r.goes("r3=abc[r3=3]");
    w.goes("wabc=3"); // the second buffer is had
}

// Whatever is called in whatever order, the counters stay inside the buffer; the sanitizers watch the rest.
TEST(StreamMemory, AnyOrderOfOperationsStaysInTheBuffer) {
    std::mt19937 random{1};
    const auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    for (int round = 0; round < 3000; round++) {
        FakeBackend b{.data = std::string(300, 'x'),
                      .most = 1 + pick(40),
                      .buffer_size = pick(20),
                      .skips = pick(2) != 0,
                      .unreads = pick(2) != 0,
                      .unskips = pick(2) != 0};
        const bool reads = pick(4);
        const Stream s{b, reads ? IO_READ : IO_WRITE};
        const io_stream &r = *s;
        for (int i = 0; i < 30; i++) {
            const uint32_t n = pick(2) ? pick(10) : pick(60);
            const char operation = (reads ? "rrsubnlg" : "wwwwknlg")[pick(8)];
            const bool gives = operation == 'u' || operation == 'w';
            operate(s.h, operation, gives ? std::string(n, 'y') : std::to_string(n));
            const uint64_t held = r.buffer ? malloc_usable_size(r.buffer) : r.position;
            ASSERT_TRUE(uint64_t{r.position} + r.count <= held || (!reads && !r.buffer)) << round;
        }
    }
}

} // namespace
