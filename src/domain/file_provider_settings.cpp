#include "domain/file_provider_settings.h"

#include "platform/seam.h"
#include "platform/settings_application.h"

void openFileProviderSettings() {
    platform::current<platform::SettingsApplication>().open();
}
