#include "platform/desktop/symbol_images.h"

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHash>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QStandardPaths>
#include <QSvgRenderer>
#include <array>

#include "platform/application_bundle.h"

namespace platform {
namespace {

struct Symbol {
    const char* name;       // the name the interface uses
    const char* themeName;  // the icon-theme name, also the resource file's base name
};

constexpr std::array<Symbol, 8> SYMBOLS{{
    {"cloud", "vaskel-cloud-symbolic"},
    {"icloud.slash", "vaskel-cloud-slash-symbolic"},
    {"pause.circle", "vaskel-pause-circle-symbolic"},
    {"arrow.up.arrow.down.circle", "vaskel-transfer-circle-symbolic"},
    {"exclamationmark.icloud", "vaskel-cloud-attention-symbolic"},
    {"exclamationmark.triangle.fill", "vaskel-warning-symbolic"},
    {"person.crop.circle.fill", "vaskel-account-symbolic"},
    {"folder.badge.questionmark", "vaskel-folder-question-symbolic"},
}};

QString resourcePath(const QString& themeName) {
    return QStringLiteral(":/icons/") + themeName + QStringLiteral(".svg");
}

// Draws a fill-only SVG in one colour at whatever size is asked for, the way desktops draw their
// symbolic icons: the shape's coverage is kept and every pixel takes the colour.
class TintedSvgEngine final : public QIconEngine {
public:
    TintedSvgEngine(QString file, QColor color) : file_(std::move(file)), color_(color) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
               QIcon::State state) override {
        painter->drawPixmap(rect, pixmap(rect.size(), mode, state));
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State) override {
        if (size.isEmpty()) return {};
        const quint64 key = (quint64(size.width()) << 32) | (quint64(size.height()) << 1) |
                            (mode == QIcon::Disabled ? 1 : 0);
        if (auto found = cache_.constFind(key); found != cache_.cend()) return *found;
        QImage image(size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QSvgRenderer renderer(file_);
        QPainter painter(&image);
        renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(size)));
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        QColor color =
            color_.isValid() ? color_ : QGuiApplication::palette().color(QPalette::WindowText);
        if (mode == QIcon::Disabled) color.setAlphaF(color.alphaF() * 0.5f);
        painter.fillRect(image.rect(), color);
        painter.end();
        QPixmap pixmap = QPixmap::fromImage(std::move(image));
        // A handful of sizes is all a program asks for; the cache never grows beyond that.
        if (cache_.size() < 16) cache_.insert(key, pixmap);
        return pixmap;
    }

    QSize actualSize(const QSize& size, QIcon::Mode, QIcon::State) override { return size; }
    QIconEngine* clone() const override { return new TintedSvgEngine(file_, color_); }
    QString key() const override { return QStringLiteral("vaskel-tinted-svg"); }

private:
    QString file_;
    QColor color_;
    QHash<quint64, QPixmap> cache_;
};

const Symbol* find(const QString& symbol) {
    for (const Symbol& entry : SYMBOLS)
        if (symbol == QLatin1String(entry.name)) return &entry;
    return nullptr;
}

}  // namespace

std::optional<QString> symbolIconName(const QString& symbol) {
    const Symbol* entry = find(symbol);
    if (!entry) return std::nullopt;
    return QString::fromLatin1(entry->themeName);
}

std::optional<QIcon> symbolIcon(const QString& symbol, const QColor& color) {
    const Symbol* entry = find(symbol);
    if (!entry) return std::nullopt;
    return QIcon(new TintedSvgEngine(resourcePath(QLatin1String(entry->themeName)), color));
}

QString symbolThemePath() {
    // Beside the executable in a build tree, ../share when installed, else the data folders.
    static const QString path = [] {
        const QString probe =
            QStringLiteral("hicolor/scalable/apps/") + QLatin1String(SYMBOLS[0].themeName) + ".svg";
        const QString bundle = ApplicationBundle::real().path();
        QStringList candidates;
        if (!bundle.isEmpty())
            candidates << bundle + QStringLiteral("/share/icons")
                       << bundle + QStringLiteral("/../share/icons");
        for (const QString& data :
             QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation))
            candidates << data + QStringLiteral("/icons");
        for (const QString& candidate : candidates)
            if (QFileInfo::exists(candidate + QLatin1Char('/') + probe))
                return QDir::cleanPath(QFileInfo(candidate).absoluteFilePath());
        return QString();
    }();
    return path;
}

}  // namespace platform
