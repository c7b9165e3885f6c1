#include "platform/keychain_backend.h"

// For secret_service_get_session_dbus_path, which libsecret keeps out of its default API.
#define SECRET_API_SUBJECT_TO_CHANGE
#include <libsecret/secret.h>

#include <QByteArray>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

// The keychain on Linux: the Secret Service of the session bus (gnome-keyring, KWallet's
// Secret Service, KeePassXC, ...), reached through libsecret's synchronous calls. Each operation
// opens its own connection to the service and closes its session afterwards, so a keyring
// daemon that restarts between two calls leaves nothing stale behind, and calls from different
// threads share nothing.
//
// Nothing here ever asks the user anything. A locked collection is reported as
// INTERACTION_NOT_ALLOWED before an operation that would need it unlocked, and a watchdog cancels
// any operation that is still running after OPERATION_DEADLINE, so a service that never answers,
// or a prompt that a service raises on its own, cannot block the caller. A service that let the
// deadline pass once costs no further wait (SilentServiceMemory).

namespace platform {
namespace {

using namespace keychain_status;

constexpr std::chrono::seconds OPERATION_DEADLINE{5};

// Attribute names on the stored item; the schema name tells keyring managers what it is.
constexpr const char* SCHEMA_NAME = "com.norva.vaskel.AccountKey";
constexpr const char* SERVICE_ATTRIBUTE = "service";
constexpr const char* ACCESS_GROUP_ATTRIBUTE = "access-group";
constexpr const char* ACCOUNT_ATTRIBUTE = "account";

// Items are found by their attributes alone (DONT_MATCH_NAME), so an item is found whatever
// program wrote it, as long as service and access group agree.
const SecretSchema* itemSchema() {
    static const SecretSchema schema = [] {
        SecretSchema s{};
        s.name = SCHEMA_NAME;
        s.flags = SECRET_SCHEMA_DONT_MATCH_NAME;
        s.attributes[0] = {SERVICE_ATTRIBUTE, SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[1] = {ACCESS_GROUP_ATTRIBUTE, SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[2] = {ACCOUNT_ATTRIBUTE, SECRET_SCHEMA_ATTRIBUTE_STRING};
        return s;
    }();
    return &schema;
}

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref>;

struct HashTableUnref {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
using Attributes = std::unique_ptr<GHashTable, HashTableUnref>;

struct ItemListFree {
    void operator()(GList* list) const { g_list_free_full(list, g_object_unref); }
};
using ItemList = std::unique_ptr<GList, ItemListFree>;

struct ValueUnref {
    void operator()(SecretValue* value) const { secret_value_unref(value); }
};
using Value = std::unique_ptr<SecretValue, ValueUnref>;

/// A GError that frees itself.
class Error {
public:
    Error() = default;
    ~Error() {
        if (error_) g_error_free(error_);
    }
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;

    GError** out() { return &error_; }
    explicit operator bool() const { return error_ != nullptr; }

    /// Whether this is the D-Bus error `name` that a peer sent.
    bool isRemote(const char* name) const {
        if (!error_ || !g_dbus_error_is_remote_error(error_)) return false;
        gchar* remote = g_dbus_error_get_remote_error(error_);
        const bool same = remote && std::strcmp(remote, name) == 0;
        g_free(remote);
        return same;
    }

    /// The keychain status this error stands for.
    OSStatus status() const {
        if (!error_) return SUCCESS;
        if (g_error_matches(error_, SECRET_ERROR, SECRET_ERROR_IS_LOCKED))
            return INTERACTION_NOT_ALLOWED;
        if (g_error_matches(error_, SECRET_ERROR, SECRET_ERROR_NO_SUCH_OBJECT))
            return ITEM_NOT_FOUND;
        if (g_error_matches(error_, SECRET_ERROR, SECRET_ERROR_ALREADY_EXISTS))
            return DUPLICATE_ITEM;
        if (g_error_matches(error_, SECRET_ERROR, SECRET_ERROR_PROTOCOL)) return DECODE;
        if (g_error_matches(error_, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED)) return AUTH_FAILED;
        if (g_error_matches(error_, G_DBUS_ERROR, G_DBUS_ERROR_NOT_SUPPORTED)) return UNIMPLEMENTED;
        if (g_error_matches(error_, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS)) return PARAM;
        // Everything else means that no keychain could be reached: no session bus, no Secret
        // Service on it (activation failed), a connection that broke off, or the watchdog.
        return NOT_AVAILABLE;
    }

private:
    GError* error_ = nullptr;
};

/// A cancellable that a watchdog thread cancels once OPERATION_DEADLINE has passed.
class Deadline {
public:
    Deadline() : cancellable_(g_cancellable_new()), watchdog_([this] { watch(); }) {}
    ~Deadline() {
        {
            std::lock_guard lock(mutex_);
            finished_ = true;
        }
        wake_.notify_one();
        watchdog_.join();
        g_object_unref(cancellable_);
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    GCancellable* cancellable() const { return cancellable_; }

    /// Whether the watchdog had to cancel the operation.
    bool expired() const {
        std::lock_guard lock(mutex_);
        return expired_;
    }

private:
    void watch() {
        std::unique_lock lock(mutex_);
        if (!wake_.wait_for(lock, OPERATION_DEADLINE, [this] { return finished_; })) {
            expired_ = true;
            g_cancellable_cancel(cancellable_);
        }
    }

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    bool finished_ = false;
    bool expired_ = false;
    GCancellable* cancellable_;
    std::thread watchdog_;  // last: starts once everything above exists
};

Attributes queryAttributes(const KeychainQuery& query) {
    Attributes attributes(g_hash_table_new_full(g_str_hash, g_str_equal, nullptr, g_free));
    g_hash_table_insert(attributes.get(), const_cast<char*>(SERVICE_ATTRIBUTE),
                        g_strdup(query.service.toUtf8().constData()));
    g_hash_table_insert(attributes.get(), const_cast<char*>(ACCESS_GROUP_ATTRIBUTE),
                        g_strdup(query.accessGroup.toUtf8().constData()));
    return attributes;
}

constexpr int SESSION_CLOSE_TIMEOUT_MS = 1000;
constexpr int OWNER_QUERY_TIMEOUT_MS = 1000;
constexpr const char* SECRET_SERVICE_NAME = "org.freedesktop.secrets";

/// Who owns the Secret Service's name on `bus`: the owner's unique name, the empty string when
/// nobody does, none when the bus did not say. The bus itself answers, never the service.
std::optional<QByteArray> serviceOwner(GDBusConnection* bus) {
    Error error;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetNameOwner", g_variant_new("(s)", SECRET_SERVICE_NAME), G_VARIANT_TYPE("(s)"),
        G_DBUS_CALL_FLAGS_NONE, OWNER_QUERY_TIMEOUT_MS, nullptr, error.out());
    if (!reply) {
        if (!error.isRemote("org.freedesktop.DBus.Error.NameHasNoOwner")) return std::nullopt;
        return QByteArray();
    }
    const gchar* owner = nullptr;
    g_variant_get(reply, "(&s)", &owner);
    QByteArray result(owner);
    g_variant_unref(reply);
    return result;
}

/// A Secret Service that let one call run into the deadline will let the next ones do the same:
/// the owner of the service's name at that moment is remembered, and while the same owner (or,
/// for an activation that never finished, still nobody) holds the name, calls fail at once
/// instead of waiting again. A service that restarts, or one that appears, is asked again.
class SilentServiceMemory {
public:
    /// Whether the service on `bus` is the one found silent.
    bool silent(GDBusConnection* bus) {
        {
            std::lock_guard lock(mutex_);
            if (!silentOwner_) return false;
        }
        const std::optional<QByteArray> owner = serviceOwner(bus);
        std::lock_guard lock(mutex_);
        if (!silentOwner_) return false;
        if (owner == silentOwner_) return true;
        silentOwner_.reset();
        return false;
    }

    /// Notes that the service on `bus` did not answer in time.
    void remember(GDBusConnection* bus) {
        const std::optional<QByteArray> owner = serviceOwner(bus);
        std::lock_guard lock(mutex_);
        silentOwner_ = owner;
    }

private:
    std::mutex mutex_;
    std::optional<QByteArray> silentOwner_;
};

SilentServiceMemory& silentService() {
    static SilentServiceMemory memory;
    return memory;
}

// An open connection to the service. Reading or storing a secret opens a transfer session in
// the service, which the service keeps until it is closed or the process leaves the bus, and
// libsecret does not close it: without the Close here, a long-running agent would leave one
// session behind in the keyring daemon for every key it reads.
//
// It also notes, when the operation ran into its deadline, that the service is silent.
struct Connection {
    GObjectPtr<GDBusConnection> bus;
    GObjectPtr<SecretService> service;
    OSStatus status = SUCCESS;
    const Deadline* deadline = nullptr;  // the operation's deadline, which outlives this

    Connection(GObjectPtr<GDBusConnection> sessionBus, GObjectPtr<SecretService> openService,
               OSStatus result, const Deadline* operationDeadline)
        : bus(std::move(sessionBus)),
          service(std::move(openService)),
          status(result),
          deadline(operationDeadline) {}
    Connection(Connection&&) = default;
    Connection& operator=(Connection&&) = delete;
    ~Connection() {
        if (bus && deadline && deadline->expired()) silentService().remember(bus.get());
        if (!service) return;
        const gchar* session = secret_service_get_session_dbus_path(service.get());
        if (!session) return;
        auto* proxy = G_DBUS_PROXY(service.get());
        GVariant* reply = g_dbus_connection_call_sync(
            g_dbus_proxy_get_connection(proxy), g_dbus_proxy_get_name(proxy), session,
            "org.freedesktop.Secret.Session", "Close", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE,
            SESSION_CLOSE_TIMEOUT_MS, deadline->cancellable(), nullptr);
        if (reply) g_variant_unref(reply);
    }
};

Connection connect(const Deadline& deadline) {
    Error error;
    // libsecret talks over GLib's shared session-bus connection, which by default ends the
    // whole process when the bus goes away (at logout, say) while a call holds it. A keychain
    // call must fail instead, so take the connection first and switch that off.
    GObjectPtr<GDBusConnection> bus(
        g_bus_get_sync(G_BUS_TYPE_SESSION, deadline.cancellable(), error.out()));
    if (!bus) return {nullptr, nullptr, error ? error.status() : NOT_AVAILABLE, nullptr};
    g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
    if (silentService().silent(bus.get())) return {nullptr, nullptr, NOT_AVAILABLE, nullptr};

    GObjectPtr<SecretService> service(secret_service_open_sync(
        SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_NONE, deadline.cancellable(), error.out()));
    OSStatus status = service ? SUCCESS : error ? error.status() : NOT_AVAILABLE;
    return {std::move(bus), std::move(service), status, &deadline};
}

struct Search {
    ItemList items;
    OSStatus status = SUCCESS;
};

Search search(SecretService* service, const KeychainQuery& query, bool loadSecrets,
              const Deadline& deadline) {
    Error error;
    const Attributes attributes = queryAttributes(query);
    // ALL returns locked items as well; without UNLOCK nothing is ever unlocked, and secrets
    // are loaded for unlocked items only.
    const auto flags =
        SecretSearchFlags(SECRET_SEARCH_ALL | (loadSecrets ? SECRET_SEARCH_LOAD_SECRETS : 0));
    ItemList items(secret_service_search_sync(service, itemSchema(), attributes.get(), flags,
                                              deadline.cancellable(), error.out()));
    if (error) return {nullptr, error.status()};
    return {std::move(items), SUCCESS};
}

class SecretServiceKeychain final : public KeychainBackend {
public:
    Lookup copyMatching(const KeychainQuery& query) override {
        Deadline deadline;
        Connection connection = connect(deadline);
        if (connection.status != SUCCESS) return {connection.status, {}};
        Search found = search(connection.service.get(), query, true, deadline);
        if (found.status != SUCCESS) return {found.status, {}};

        // Of several matches the newest counts: it is the one saved last.
        bool sawLocked = false;
        SecretItem* newest = nullptr;
        for (GList* node = found.items.get(); node; node = node->next) {
            auto* item = static_cast<SecretItem*>(node->data);
            if (secret_item_get_locked(item)) {
                sawLocked = true;
                continue;
            }
            if (!newest || secret_item_get_created(item) > secret_item_get_created(newest))
                newest = item;
        }
        if (!newest) return {sawLocked ? INTERACTION_NOT_ALLOWED : ITEM_NOT_FOUND, {}};
        const Value value(secret_item_get_secret(newest));
        if (!value) return {DECODE, {}};
        gsize length = 0;
        const gchar* bytes = secret_value_get(value.get(), &length);
        return {SUCCESS, QByteArray(bytes, qsizetype(length))};
    }

    OSStatus add(const KeychainItem& item) override {
        Deadline deadline;
        Connection connection = connect(deadline);
        if (connection.status != SUCCESS) return connection.status;

        Error error;
        GObjectPtr<SecretCollection> collection(secret_collection_for_alias_sync(
            connection.service.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE,
            deadline.cancellable(), error.out()));
        if (error) return error.status();
        if (!collection) return NO_DEFAULT_KEYCHAIN;
        // Storing into a locked collection would make the service ask the user to unlock it.
        if (secret_collection_get_locked(collection.get())) return INTERACTION_NOT_ALLOWED;

        const Attributes attributes = queryAttributes({item.service, item.accessGroup});
        g_hash_table_insert(attributes.get(), const_cast<char*>(ACCOUNT_ATTRIBUTE),
                            g_strdup(item.account.toUtf8().constData()));
        const Value value(
            secret_value_new(item.secret.constData(), item.secret.size(), "text/plain"));
        GObjectPtr<SecretItem> created(secret_item_create_sync(
            collection.get(), itemSchema(), attributes.get(), item.label.toUtf8().constData(),
            value.get(), SECRET_ITEM_CREATE_NONE, deadline.cancellable(), error.out()));
        if (error) return error.status();
        return created ? SUCCESS : NOT_AVAILABLE;
    }

    OSStatus deleteMatching(const KeychainQuery& query) override {
        Deadline deadline;
        Connection connection = connect(deadline);
        if (connection.status != SUCCESS) return connection.status;
        Search found = search(connection.service.get(), query, false, deadline);
        if (found.status != SUCCESS) return found.status;
        if (!found.items) return ITEM_NOT_FOUND;

        // Deleting a locked item would need the user; the unlocked ones go regardless.
        OSStatus result = SUCCESS;
        for (GList* node = found.items.get(); node; node = node->next) {
            auto* item = static_cast<SecretItem*>(node->data);
            if (secret_item_get_locked(item)) {
                result = INTERACTION_NOT_ALLOWED;
                continue;
            }
            Error error;
            if (!secret_item_delete_sync(item, deadline.cancellable(), error.out()))
                result = error ? error.status() : NOT_AVAILABLE;
        }
        return result;
    }

    // The Secret Service gives every process of the user's session the same access to an
    // unlocked item; there are no per-application access groups.
    bool readableAcrossSession() const override { return true; }
};

}  // namespace

KeychainBackend& KeychainBackend::real() {
    static SecretServiceKeychain keychain;
    return keychain;
}

}  // namespace platform
