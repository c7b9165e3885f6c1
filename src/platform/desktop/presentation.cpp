#include "platform/desktop/presentation.h"

#include <QApplication>
#include <QWidget>

namespace platform {

Presentation& Presentation::shared() {
    static Presentation presentation;
    return presentation;
}

void Presentation::activate() {
    ++activations_;
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (!window->isVisible()) continue;
        window->raise();
        window->activateWindow();
    }
}

}  // namespace platform
