#pragma once

#include <QStringList>
#include <QUrl>

namespace platform {

/// The desktop's file manager and browser.
class Workspace {
public:
    virtual ~Workspace() = default;

    /// Opens `url` in the application that handles it; false when none would.
    virtual bool openURL(const QUrl& url) = 0;

    /// Opens a file-manager window with `paths` selected (org.freedesktop.FileManager1), or, when
    /// no file manager offers that, the folder that holds the first path.
    virtual void activateFileViewerSelecting(const QStringList& paths) = 0;

    static Workspace& real();
};

}  // namespace platform
