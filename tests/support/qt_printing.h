#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>
#include <ostream>

// Readable Qt strings in test failure messages.
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QStringList& texts, std::ostream* out) {
    *out << '{';
    for (qsizetype i = 0; i < texts.size(); ++i)
        *out << (i ? ", \"" : "\"") << texts[i].toStdString() << '"';
    *out << '}';
}
inline void PrintTo(const QByteArray& bytes, std::ostream* out) {
    *out << '"' << bytes.left(200).toStdString() << (bytes.size() > 200 ? "...\"" : "\"");
}
