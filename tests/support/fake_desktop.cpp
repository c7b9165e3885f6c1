#include "support/fake_desktop.h"

namespace testing_support {

bool FakeStatusItem::setSymbol(const QString& name, const QString& text) {
    if (!known.contains(name)) return false;
    shownSymbol = name;
    description = text;
    return true;
}

std::unique_ptr<platform::StatusItem> FakeStatusBar::makeStatusItem() {
    auto made = std::make_unique<FakeStatusItem>();
    made->button = button;
    item = made.get();
    return made;
}

std::optional<QString> FakeUserDefaults::string(const QString& key) const {
    const QVariant value = values.value(key);
    if (value.typeId() != QMetaType::QString) return std::nullopt;
    return value.toString();
}

int FakeAlerts::runModal(const platform::Alert& alert) {
    shown.push_back(alert);
    if (answers.empty()) return platform::ALERT_FIRST_BUTTON;
    const int answer = answers.front();
    answers.pop_front();
    return answer;
}

}  // namespace testing_support
