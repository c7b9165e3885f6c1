#include "platform/user_defaults.h"

#include <QSettings>

namespace platform {
namespace {

class SettingsDefaults final : public UserDefaults {
public:
    std::optional<QString> string(const QString& key) const override {
        const QVariant value = settings().value(key);
        if (value.typeId() != QMetaType::QString) return std::nullopt;
        return value.toString();
    }
    bool boolean(const QString& key) const override {
        // QSettings' native format gives back "true"/"false" as text.
        const QVariant value = settings().value(key);
        if (value.typeId() == QMetaType::Bool) return value.toBool();
        return value.typeId() == QMetaType::QString && value.toString() == QLatin1String("true");
    }
    void setString(const QString& key, const QString& value) override {
        settings().setValue(key, value);
    }
    void setBoolean(const QString& key, bool value) override { settings().setValue(key, value); }
    void remove(const QString& key) override { settings().remove(key); }

private:
    static QSettings& settings() {
        static QSettings store(QStringLiteral("norva"), QStringLiteral("vaskel"));
        return store;
    }
};

}  // namespace

UserDefaults& UserDefaults::real() {
    static SettingsDefaults defaults;
    return defaults;
}

}  // namespace platform
