#include "server/request_headers.h"

#include "server/client_header.h"

namespace request_headers {

Headers signInIdentity() {
    const QByteArray client = vaskelClientHeader().toUtf8();
    return {{"User-Agent", "Vaskel " + client}, {"X-Vaskel-Client", client}};
}

Headers accountStatusIdentity() {
    return {{"User-Agent", "VaskelProvider/1.0"},
            {"X-Vaskel-Client", vaskelClientHeader().toUtf8()}};
}

}  // namespace request_headers
