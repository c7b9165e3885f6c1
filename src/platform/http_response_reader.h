#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace platform {

/// Reads one HTTP/1.1 answer from the bytes of a connection, as they arrive, and says when it is
/// complete. An answer counts only when all of it arrived as its framing announced (a length,
/// chunks, or the end of the connection); one cut short is not an answer. Interim answers
/// (100 Continue and the like) are skipped.
class HttpResponseReader {
public:
    enum class State {
        reading,   // more bytes are needed
        complete,  // an HTTP answer: `status` and `body` (or `bodyRefused`)
        notHttp,   // the peer answered with something that is not HTTP
        broken,    // the answer breaks HTTP's framing rules: `problem` says how
    };

    /// `maxBodyBytes`: a longer body is refused as soon as its length shows, not kept.
    explicit HttpResponseReader(qint64 maxBodyBytes);

    /// Takes the next bytes of the connection; gives the state after them.
    State feed(const QByteArray& bytes);

    /// The connection ended (closed or reset) after the bytes fed so far. An answer whose body
    /// runs to the end of the connection is then complete; any other unfinished answer is
    /// `broken` with `truncated()` true.
    State end();

    State state() const { return state_; }
    int status() const { return status_; }
    /// The body, complete once the state is `complete`; empty when refused.
    const QByteArray& body() const { return body_; }
    bool bodyRefused() const { return bodyRefused_; }
    /// Whether the connection ended in the middle of the answer.
    bool truncated() const { return truncated_; }
    /// Whether no byte at all has arrived.
    bool nothingReceived() const { return !received_; }

private:
    enum class Part { head, lengthBody, chunkSize, chunkData, chunkDataEnd, trailers, untilEnd };

    State advance();
    bool readHead();
    bool readChunks();
    State fail();
    State finish();
    bool append(const char* data, qint64 size);

    qint64 maxBodyBytes_;
    State state_ = State::reading;
    Part part_ = Part::head;
    QByteArray pending_;  // received, not yet consumed
    bool received_ = false;
    bool truncated_ = false;
    int status_ = 0;
    QByteArray body_;
    bool bodyRefused_ = false;
    qint64 remaining_ = 0;  // of the body (lengthBody) or of the current chunk (chunkData)
};

}  // namespace platform
