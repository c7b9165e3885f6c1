#pragma once

/// Opens the desktop's settings application, where one is known, so the user can check that the
/// sync extension is allowed to run. Reports nothing.
void openFileProviderSettings();
