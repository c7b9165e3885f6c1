#pragma once

#include <QAbstractButton>

/// A button drawn as a link: its text alone, in the theme's link colour (or red, for warnings),
/// underlined while the pointer is over it. It takes keyboard focus like any button and reads
/// to assistive technology as a button named by its text.
class LinkButton final : public QAbstractButton {
    Q_OBJECT
public:
    enum class Tone { link, red };

    explicit LinkButton(const QString& text, QWidget* parent = nullptr);

    void setTone(Tone tone);
    Tone tone() const { return tone_; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    Tone tone_ = Tone::link;
    bool hovered_ = false;
};
