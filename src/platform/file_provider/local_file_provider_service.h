#pragma once

#include <QString>
#include <memory>

#include "platform/file_provider/callback_thread.h"
#include "platform/file_provider/file_provider.h"

namespace platform {

/// The file-provider service of this machine: its state lives in one folder per application,
/// the domains' user-visible folders under `<home>/CloudStorage/`, where home is the platform's
/// home directory at the time of each request. Work and completions run on one callback thread
/// that the service owns.
class LocalFileProviderService final : public FileProviderService {
public:
    /// A service over `stateDirectory` (created 0700 at the first write).
    explicit LocalFileProviderService(QString stateDirectory);
    ~LocalFileProviderService() override;

    /// `<XDG state home>/fileprovider/com.norva.vaskel`, where the XDG state home is
    /// $XDG_STATE_HOME when that is absolute, else `<home>/.local/state`.
    static QString defaultStateDirectory();

    /// The user-visible folder of a domain named `displayName`:
    /// `<home>/CloudStorage/Vaskel-<displayName>`, with "/" in the name written as "-".
    static QString userVisibleFolder(const QString& displayName);

    const QString& stateDirectory() const { return stateDirectory_; }

    void getDomains(DomainsCompletion completion) override;
    void add(const FileProviderDomain& domain, ErrorCompletion completion) override;
    void remove(const FileProviderDomain& domain, ErrorCompletion completion) override;
    bool isRegistered(const QString& domainIdentifier) override;
    void reconnect(const QString& domainIdentifier, ErrorCompletion completion) override;
    void signalWorkingSet(const QString& domainIdentifier, ErrorCompletion completion) override;
    void userVisibleURL(const QString& domainIdentifier, URLCompletion completion) override;
    void identifierForUserVisibleFile(const QString& path,
                                      IdentifierCompletion completion) override;
    void evictItem(const QString& domainIdentifier, const QString& itemIdentifier,
                   ErrorCompletion completion) override;
    std::shared_ptr<FileProviderProgress> globalProgress(const QString& domainIdentifier,
                                                         FileOperationKind kind) override;

private:
    QString stateDirectory_;
    CallbackThread callbacks_;
};

}  // namespace platform
