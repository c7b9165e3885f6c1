#include "platform/http_response_reader.h"

#include <QList>
#include <algorithm>
#include <cctype>
#include <cstring>

namespace platform {
namespace {

constexpr qsizetype MAX_HEAD_BYTES = 64 * 1024;
constexpr qsizetype MAX_CHUNK_LINE_BYTES = 4096;
constexpr char HTTP_PREFIX[] = "HTTP/";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// A non-negative decimal number of at most 18 digits, so that it fits in 64 bits.
std::optional<qint64> decimal(const QByteArray& text) {
    if (text.isEmpty() || text.size() > 18) return std::nullopt;
    qint64 value = 0;
    for (char c : text) {
        if (!isDigit(c)) return std::nullopt;
        value = value * 10 + (c - '0');
    }
    return value;
}

/// A chunk size: hexadecimal, at most 15 digits.
std::optional<qint64> hexadecimal(const QByteArray& text) {
    if (text.isEmpty() || text.size() > 15) return std::nullopt;
    bool ok = false;
    const qint64 value = text.toLongLong(&ok, 16);
    if (!ok || value < 0) return std::nullopt;
    for (char c : text) {
        if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
    }
    return value;
}

/// The status of "HTTP/1.1 200 OK"; none when the line is not a status line.
std::optional<int> statusOf(const QByteArray& line) {
    // "HTTP/" digit "." digit SP 3digit [SP reason]
    if (line.size() < 12 || !line.startsWith(HTTP_PREFIX) || !isDigit(line[5]) || line[6] != '.' ||
        !isDigit(line[7]) || line[8] != ' ') {
        return std::nullopt;
    }
    if (!isDigit(line[9]) || !isDigit(line[10]) || !isDigit(line[11])) return std::nullopt;
    if (line.size() > 12 && line[12] != ' ') return std::nullopt;
    return (line[9] - '0') * 100 + (line[10] - '0') * 10 + (line[11] - '0');
}

/// Where the first line ending at or after `from` ends (the index of its '\n'); -1 when none.
qsizetype lineEnd(const QByteArray& bytes, qsizetype from = 0) {
    return bytes.indexOf('\n', from);
}

QByteArray withoutCarriageReturn(QByteArray line) {
    if (line.endsWith('\r')) line.chop(1);
    return line;
}

}  // namespace

HttpResponseReader::HttpResponseReader(qint64 maxBodyBytes) : maxBodyBytes_(maxBodyBytes) {}

HttpResponseReader::State HttpResponseReader::feed(const QByteArray& bytes) {
    if (state_ != State::reading || bytes.isEmpty()) return state_;
    received_ = true;
    pending_ += bytes;
    return advance();
}

HttpResponseReader::State HttpResponseReader::end() {
    if (state_ != State::reading) return state_;
    if (part_ == Part::untilEnd) return finish();
    truncated_ = true;
    return fail();
}

HttpResponseReader::State HttpResponseReader::fail() {
    pending_.clear();
    body_.clear();
    state_ = State::broken;
    return state_;
}

HttpResponseReader::State HttpResponseReader::finish() {
    pending_.clear();
    state_ = State::complete;
    return state_;
}

bool HttpResponseReader::append(const char* data, qint64 size) {
    if (body_.size() + size > maxBodyBytes_) {
        body_.clear();
        bodyRefused_ = true;
        finish();
        return false;
    }
    body_.append(data, qsizetype(size));
    return true;
}

HttpResponseReader::State HttpResponseReader::advance() {
    for (;;) {
        switch (part_) {
            case Part::head:
                if (!readHead()) return state_;
                break;
            case Part::lengthBody: {
                const qint64 take = std::min<qint64>(remaining_, pending_.size());
                if (!append(pending_.constData(), take)) return state_;
                pending_.remove(0, qsizetype(take));
                remaining_ -= take;
                // Bytes after the announced length belong to no answer; they are dropped.
                return remaining_ == 0 ? finish() : state_;
            }
            case Part::untilEnd:
                if (!append(pending_.constData(), pending_.size())) return state_;
                pending_.clear();
                return state_;
            default:
                if (!readChunks()) return state_;
                break;
        }
    }
}

// Consumes one head (status line and headers) when it has fully arrived. False when more bytes
// are needed or the state changed.
bool HttpResponseReader::readHead() {
    const qsizetype prefix = std::min<qsizetype>(pending_.size(), 5);
    if (std::memcmp(pending_.constData(), HTTP_PREFIX, size_t(prefix)) != 0) {
        pending_.clear();
        state_ = State::notHttp;
        return false;
    }
    // The head ends with an empty line.
    qsizetype end = -1;
    qsizetype next = 0;
    for (qsizetype from = 0; (end = lineEnd(pending_, from)) >= 0; from = end + 1) {
        const qsizetype length = end - from;
        if (length == 0 || (length == 1 && pending_[from] == '\r')) {
            next = end + 1;
            break;
        }
    }
    if (next == 0) {
        if (pending_.size() > MAX_HEAD_BYTES) fail();
        return false;
    }
    const QList<QByteArray> lines = pending_.left(next).split('\n');
    pending_.remove(0, next);

    const std::optional<int> status = statusOf(withoutCarriageReturn(lines[0]));
    if (!status) {
        fail();
        return false;
    }
    std::optional<qint64> length;
    bool chunked = false;
    bool encoded = false;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = withoutCarriageReturn(lines[i]);
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0) continue;
        const QByteArray name = line.left(colon).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (name == "content-length") {
            // Repeated lengths must agree; "5, 5" counts as one.
            for (const QByteArray& part : value.split(',')) {
                const std::optional<qint64> parsed = decimal(part.trimmed());
                if (!parsed || (length && *length != *parsed)) {
                    fail();
                    return false;
                }
                length = parsed;
            }
        } else if (name == "transfer-encoding") {
            encoded = true;
            chunked = value.toLower().split(',').last().trimmed() == "chunked";
        }
    }

    status_ = *status;
    if (status_ >= 100 && status_ < 200 && status_ != 101) return true;  // interim: next head
    if (status_ == 101 || status_ == 204 || status_ == 304) {
        finish();
        return false;
    }
    if (chunked) {
        part_ = Part::chunkSize;
    } else if (length && !encoded) {
        if (*length > maxBodyBytes_) {
            bodyRefused_ = true;
            finish();
            return false;
        }
        remaining_ = *length;
        part_ = Part::lengthBody;
    } else {
        part_ = Part::untilEnd;
    }
    return true;
}

// Consumes as much of a chunked body as has arrived. False when more bytes are needed or the
// state changed.
bool HttpResponseReader::readChunks() {
    switch (part_) {
        case Part::chunkSize: {
            const qsizetype end = lineEnd(pending_);
            if (end < 0) {
                if (pending_.size() > MAX_CHUNK_LINE_BYTES) fail();
                return false;
            }
            QByteArray line = withoutCarriageReturn(pending_.left(end));
            pending_.remove(0, end + 1);
            const qsizetype extension = line.indexOf(';');
            if (extension >= 0) line.truncate(extension);
            const std::optional<qint64> size = hexadecimal(line.trimmed());
            if (!size) {
                fail();
                return false;
            }
            remaining_ = *size;
            part_ = remaining_ == 0 ? Part::trailers : Part::chunkData;
            return true;
        }
        case Part::chunkData: {
            if (pending_.isEmpty()) return false;
            const qint64 take = std::min<qint64>(remaining_, pending_.size());
            if (!append(pending_.constData(), take)) return false;
            pending_.remove(0, qsizetype(take));
            remaining_ -= take;
            if (remaining_ == 0) part_ = Part::chunkDataEnd;
            return true;
        }
        case Part::chunkDataEnd: {
            if (pending_.startsWith("\r\n") || pending_.startsWith('\n')) {
                pending_.remove(0, pending_[0] == '\r' ? 2 : 1);
                part_ = Part::chunkSize;
                return true;
            }
            if (pending_.isEmpty() || pending_ == "\r") return false;
            fail();
            return false;
        }
        case Part::trailers: {
            const qsizetype end = lineEnd(pending_);
            if (end < 0) {
                if (pending_.size() > MAX_HEAD_BYTES) fail();
                return false;
            }
            const bool last = withoutCarriageReturn(pending_.left(end)).isEmpty();
            pending_.remove(0, end + 1);
            if (last) {
                finish();
                return false;
            }
            return true;
        }
        default:
            return false;
    }
}

}  // namespace platform
