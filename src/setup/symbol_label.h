#pragma once

#include <QIcon>
#include <QLabel>
#include <QRgb>
#include <optional>

/// A symbol image at a fixed size, drawn from its vector source at the screen's pixel density
/// (crisp on scaled displays) in a colour taken from the palette when painted, so that it
/// follows theme changes. Being a label, it reads to assistive technology by the accessible
/// name its owner gives it.
class SymbolLabel final : public QLabel {
    Q_OBJECT
public:
    enum class Tone { tint, secondary, red, text };

    /// `symbol` is a name of platform::symbolIcon; an unknown one draws nothing.
    SymbolLabel(const QString& symbol, Tone tone, int size, QWidget* parent = nullptr);

    const QString& symbol() const { return symbol_; }
    /// Width and height in device-independent pixels.
    void setSymbolSize(int size);
    QSize sizeHint() const override { return {size_, size_}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QColor color() const;

    QString symbol_;
    Tone tone_;
    int size_;
    // The icon of the last colour drawn with.
    std::optional<std::pair<QRgb, std::optional<QIcon>>> cached_;
};
