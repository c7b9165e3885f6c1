#include "support/secret_service_session.h"

#include <libsecret/secret.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>

namespace testing_support::secret_service {
namespace {

constexpr const char* SECRET_SERVICE_NAME = "org.freedesktop.secrets";
constexpr const char* SILENT_PEER = "silent-secret-service";

struct Service {
    SecretService* service = nullptr;
    Service() {
        service = secret_service_open_sync(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_NONE,
                                           nullptr, nullptr);
    }
    ~Service() {
        if (service) g_object_unref(service);
    }
};

GHashTable* newAttributes() {
    return g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free);
}

void put(GHashTable* attributes, const char* name, const QString& value) {
    g_hash_table_insert(attributes, g_strdup(name), g_strdup(value.toUtf8().constData()));
}

// Takes every call on every path and answers none of them.
class Unanswering final : public QDBusVirtualObject {
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage&, const QDBusConnection&) override { return true; }
};

}  // namespace

std::vector<StoredItem> itemsWithService(const QString& service) {
    std::vector<StoredItem> result;
    Service session;
    if (!session.service) return result;
    GHashTable* attributes = newAttributes();
    put(attributes, "service", service);
    GList* items = secret_service_search_sync(
        session.service, nullptr, attributes,
        SecretSearchFlags(SECRET_SEARCH_ALL | SECRET_SEARCH_LOAD_SECRETS), nullptr, nullptr);
    g_hash_table_unref(attributes);
    for (GList* node = items; node; node = node->next) {
        auto* item = static_cast<SecretItem*>(node->data);
        StoredItem stored;
        gchar* label = secret_item_get_label(item);
        stored.label = QString::fromUtf8(label);
        g_free(label);
        GHashTable* itemAttributes = secret_item_get_attributes(item);
        GHashTableIter iterator;
        gpointer name = nullptr;
        gpointer value = nullptr;
        g_hash_table_iter_init(&iterator, itemAttributes);
        while (g_hash_table_iter_next(&iterator, &name, &value))
            stored.attributes.insert(QString::fromUtf8(static_cast<const char*>(name)),
                                     QString::fromUtf8(static_cast<const char*>(value)));
        g_hash_table_unref(itemAttributes);
        stored.locked = secret_item_get_locked(item);
        if (SecretValue* secret = secret_item_get_secret(item)) {
            gsize length = 0;
            const gchar* bytes = secret_value_get(secret, &length);
            stored.secret = QByteArray(bytes, qsizetype(length));
            secret_value_unref(secret);
        }
        result.push_back(stored);
    }
    g_list_free_full(items, g_object_unref);
    return result;
}

bool storeRawItem(const platform::KeychainItem& item) {
    // Matched by its attributes alone, as the keychain's own lookups match.
    static const SecretSchema schema = [] {
        SecretSchema s{};
        s.name = "com.norva.test.raw";
        s.flags = SECRET_SCHEMA_DONT_MATCH_NAME;
        s.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[1] = {"access-group", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[2] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return s;
    }();
    GHashTable* attributes = newAttributes();
    put(attributes, "service", item.service);
    put(attributes, "access-group", item.accessGroup);
    put(attributes, "account", item.account);
    SecretValue* value =
        secret_value_new(item.secret.constData(), item.secret.size(), "application/octet-stream");
    const bool stored = secret_password_storev_binary_sync(
        &schema, attributes, SECRET_COLLECTION_DEFAULT, item.label.toUtf8().constData(), value,
        nullptr, nullptr);
    secret_value_unref(value);
    g_hash_table_unref(attributes);
    return stored;
}

int openSessions() {
    const QDBusMessage reply = QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall(SECRET_SERVICE_NAME, "/org/freedesktop/secrets/session",
                                       "org.freedesktop.DBus.Introspectable", "Introspect"));
    if (reply.type() != QDBusMessage::ReplyMessage) return -1;
    return int(reply.arguments().value(0).toString().count("<node name="));
}

bool lockDefaultCollection() {
    Service session;
    if (!session.service) return false;
    SecretCollection* collection = secret_collection_for_alias_sync(
        session.service, SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, nullptr, nullptr);
    if (!collection) return false;
    GList* objects = g_list_append(nullptr, collection);
    const gint locked =
        secret_service_lock_sync(session.service, objects, nullptr, nullptr, nullptr);
    g_list_free(objects);
    g_object_unref(collection);
    return locked == 1;
}

SilentSecretService::SilentSecretService() {
    static Unanswering unanswering;
    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, SILENT_PEER);
    owned_ = bus.registerVirtualObject("/", &unanswering, QDBusConnection::SubPath) &&
             bus.registerService(SECRET_SERVICE_NAME);
}

SilentSecretService::~SilentSecretService() {
    QDBusConnection::disconnectFromBus(SILENT_PEER);
}

}  // namespace testing_support::secret_service
