#pragma once

#include <QList>
#include <QPair>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

// The file-provider service: the registry of sync domains that this application offers to its
// sync extension, and the requests the application makes of that extension (re-enumerate the
// working set, evict an item, report transfers). Nothing on Linux keeps these for us, so the
// service keeps them itself in a per-user state folder that the extension watches.
//
// Every asynchronous operation calls its completion exactly once, on the service's own callback
// thread: never on the caller's thread and never on the main thread.
namespace platform {

/// The identifier of the root item of a domain: the domain's user-visible folder itself.
inline constexpr const char* ROOT_CONTAINER_ITEM_IDENTIFIER =
    "NSFileProviderRootContainerItemIdentifier";

/// A sync domain: a value with the facts the service keeps about it.
struct FileProviderDomain {
    QString identifier;
    QString displayName;
    bool isHidden = false;
    bool isDisconnected = false;
    bool supportsSyncingTrash = false;

    bool operator==(const FileProviderDomain&) const = default;
};

/// What went wrong in a service request: a domain, a code and a readable description.
struct FileProviderError {
    enum Code {
        registryDamaged = 1,    // the registry exists but cannot be read or parsed
        stateNotWritable = 2,   // the registry or a domain's state could not be saved
        noSuchDomain = 3,       // the domain is not registered
        invalidDomain = 4,      // the domain cannot be registered as given
        folderUnavailable = 5,  // the domain's user-visible folder cannot be created
        noSuchItem = 6,         // the path or item does not exist
        notInDomain = 7,        // the path is not inside any registered domain's folder
    };

    static constexpr const char* DOMAIN = "com.norva.vaskel.FileProviderError";

    Code code{};
    QString description;
    /// Further facts for diagnostics (path, reason), in order.
    QList<QPair<QString, QString>> details;

    /// The readable description alone.
    QString localizedDescription() const { return description; }
    /// Domain, code, description and details in one line, for diagnostics:
    /// `Error Domain=<domain> Code=<code> "<description>" UserInfo={key=value, ...}` with the
    /// details.
    QString fullDescription() const;
};

/// The kind of transfer a global progress aggregates.
enum class FileOperationKind { downloading, uploading };

/// One reading of a global progress, taken at once so its numbers agree.
struct ProgressSnapshot {
    qint64 completedUnitCount = 0;
    qint64 totalUnitCount = 0;
    bool isFinished = true;
    bool isPausable = false;
    bool isPaused = false;
};

/// The aggregate of the extension's transfers of one kind in one domain, read live: every
/// `snapshot()` reads what the extension last reported. With nothing reported it is finished.
class FileProviderProgress {
public:
    virtual ~FileProviderProgress() = default;
    virtual ProgressSnapshot snapshot() const = 0;
};

using ErrorCompletion = std::function<void(std::optional<FileProviderError>)>;
using DomainsCompletion =
    std::function<void(QList<FileProviderDomain>, std::optional<FileProviderError>)>;
using URLCompletion = std::function<void(std::optional<QString>, std::optional<FileProviderError>)>;
/// Item identifier, domain identifier, error.
using IdentifierCompletion = std::function<void(std::optional<QString>, std::optional<QString>,
                                                std::optional<FileProviderError>)>;

/// The service as the program reaches it. The real one keeps its state under
/// `<XDG state home>/fileprovider/com.norva.vaskel/`; tests put one over a throwaway folder in
/// place, or one that never answers.
class FileProviderService {
public:
    virtual ~FileProviderService() = default;

    /// The registered domains in the order they were added. A registry that cannot be read
    /// gives an empty list and the error.
    virtual void getDomains(DomainsCompletion completion) = 0;
    /// Registers `domain`, replacing a registered one with the same identifier in place, and
    /// creates its user-visible folder (0700).
    virtual void add(const FileProviderDomain& domain, ErrorCompletion completion) = 0;
    /// Unregisters the domain with `domain`'s identifier; its folder and files stay. An unknown
    /// domain is an error.
    virtual void remove(const FileProviderDomain& domain, ErrorCompletion completion) = 0;
    /// Whether `domainIdentifier` is registered now (a manager exists exactly then).
    virtual bool isRegistered(const QString& domainIdentifier) = 0;

    /// Clears the domain's disconnected flag.
    virtual void reconnect(const QString& domainIdentifier, ErrorCompletion completion) = 0;
    /// Records a working-set signal (a counter and its time) for the extension.
    virtual void signalWorkingSet(const QString& domainIdentifier, ErrorCompletion completion) = 0;
    /// The domain's user-visible folder, created again if it went missing.
    virtual void userVisibleURL(const QString& domainIdentifier, URLCompletion completion) = 0;
    /// Which item of which registered domain `path` is (relative paths count from the current
    /// directory): the folder itself is the root item, anything below it its relative path.
    virtual void identifierForUserVisibleFile(const QString& path,
                                              IdentifierCompletion completion) = 0;
    /// Records a request that the extension drop the local copy of the item; deletes nothing.
    virtual void evictItem(const QString& domainIdentifier, const QString& itemIdentifier,
                           ErrorCompletion completion) = 0;
    /// The live aggregate of the domain's transfers of `kind`.
    virtual std::shared_ptr<FileProviderProgress> globalProgress(const QString& domainIdentifier,
                                                                 FileOperationKind kind) = 0;

    static FileProviderService& real();
};

/// The manager of one registered domain: the requests that concern that domain.
class FileProviderManager {
public:
    /// The manager of `domain`, or none when the domain is not registered.
    static std::optional<FileProviderManager> forDomain(const FileProviderDomain& domain);

    static void getDomains(DomainsCompletion completion);
    static void add(const FileProviderDomain& domain, ErrorCompletion completion);
    static void remove(const FileProviderDomain& domain, ErrorCompletion completion);
    static void getIdentifierForUserVisibleFile(const QString& path,
                                                IdentifierCompletion completion);

    void reconnect(ErrorCompletion completion) const;
    /// Tells the extension that the working set changed, so that it enumerates it again.
    void signalWorkingSetEnumerator(ErrorCompletion completion) const;
    /// The folder of the root container.
    void getUserVisibleURL(URLCompletion completion) const;
    void evictItem(const QString& itemIdentifier, ErrorCompletion completion) const;
    std::shared_ptr<FileProviderProgress> globalProgress(FileOperationKind kind) const;

    const QString& domainIdentifier() const { return domainIdentifier_; }

private:
    explicit FileProviderManager(QString domainIdentifier)
        : domainIdentifier_(std::move(domainIdentifier)) {}
    QString domainIdentifier_;
};

}  // namespace platform
