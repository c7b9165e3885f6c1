#pragma once

#include <QString>

namespace platform {

/// Lists a folder's entries. A sync extension serves its folder's listings, so a listing that
/// returns at all tells that the extension answers.
class FolderListing {
public:
    virtual ~FolderListing() = default;

    /// Reads the entries of the folder at `path` and drops them; returns when the listing has
    /// ended, with entries or with an error.
    virtual void list(const QString& path) = 0;

    static FolderListing& real();
};

}  // namespace platform
