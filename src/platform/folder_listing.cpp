#include "platform/folder_listing.h"

#include <dirent.h>

#include <QFile>

namespace platform {
namespace {

class DirectoryStreamListing final : public FolderListing {
public:
    void list(const QString& path) override {
        DIR* directory = ::opendir(QFile::encodeName(path).constData());
        if (!directory) return;
        while (::readdir(directory) != nullptr) {
        }
        ::closedir(directory);
    }
};

}  // namespace

FolderListing& FolderListing::real() {
    static DirectoryStreamListing listing;
    return listing;
}

}  // namespace platform
