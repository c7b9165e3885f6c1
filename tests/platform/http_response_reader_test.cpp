#include "platform/http_response_reader.h"

#include <gtest/gtest.h>

namespace {

using platform::HttpResponseReader;
using State = HttpResponseReader::State;

struct Outcome {
    State state;
    int status = 0;
    QByteArray body{};
    bool refused = false;
    bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& o, std::ostream* out) {
    *out << "state " << int(o.state) << ", status " << o.status << ", body \""
         << o.body.toStdString() << "\"" << (o.refused ? ", refused" : "");
}

Outcome outcome(const HttpResponseReader& reader) {
    return {reader.state(), reader.state() == State::complete ? reader.status() : 0, reader.body(),
            reader.bodyRefused()};
}

// The same answer must read the same whether it arrives at once or a byte at a time.
TEST(HttpResponseReader, ReadsAnswersByTheirFramingHoweverTheyAreSplit) {
    const QByteArray ok = "HTTP/1.1 200 OK\r\n";
    const QByteArray chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
    constexpr State done = State::complete, broken = State::broken;
    const struct {
        const char* name;
        QByteArray bytes;
        bool connectionEnds;
        Outcome expected;
    } cases[] = {
        {"length", ok + "Content-Length: 3\r\n\r\nabcEXTRA", false, {done, 200, "abc"}},
        {"length cut short", ok + "Content-Length: 9\r\n\r\nabc", true, {broken}},
        {"chunks",
         ok + "transfer-encoding: gzip, chunked\r\n\r\n2\r\nab\r\nA;ext\r\n0123456789\r\n0\r\n"
              "Trailer: t\r\n\r\n",
         false,
         {done, 200, "ab0123456789"}},
        {"chunks cut short", chunked + "2\r\nab\r\n", true, {broken}},
        {"bad chunk size", chunked + "zz\r\n", false, {broken}},
        {"to the end", "HTTP/1.1 200 OK\n\nbody", true, {done, 200, "body"}},
        {"no body", "HTTP/1.1 304 Not Modified\r\nContent-Length: 10\r\n\r\n", false, {done, 304}},
        {"interim first",
         "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 403 Forbidden\r\nContent-Length: 2\r\n\r\n{}",
         false,
         {done, 403, "{}"}},
        {"too long by length", ok + "Content-Length: 17\r\n\r\n", false, {done, 200, "", true}},
        {"too long in chunks",
         chunked + QByteArray("6\r\nabcdef\r\n").repeated(3),
         false,
         {done, 200, "", true}},
        {"not HTTP", "<html>", false, {State::notHttp}},
        {"bad status line", "HTTP/1.1 2OO OK\r\n\r\n", false, {broken}},
        {"bad length", ok + "Content-Length: -1\r\n\r\n", false, {broken}},
    };
    for (const auto& c : cases) {
        for (const bool byteByByte : {false, true}) {
            SCOPED_TRACE(std::string(c.name) + (byteByByte ? ", a byte at a time" : ""));
            HttpResponseReader reader(16);
            if (byteByByte) {
                for (char byte : c.bytes) reader.feed(QByteArray(1, byte));
            } else {
                reader.feed(c.bytes);
            }
            if (c.connectionEnds) reader.end();
            EXPECT_EQ(outcome(reader), c.expected);
        }
    }
}

}  // namespace
