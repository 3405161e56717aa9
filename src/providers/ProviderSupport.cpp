#include "providers/ProviderSupport.h"

namespace vxcloud::providers {

TransportErrorKind transportErrorKind(TransportError error) {
    switch (error) {
        case TransportError::none: return TransportErrorKind::none;
        case TransportError::couldNotResolve:
        case TransportError::couldNotConnect: return TransportErrorKind::cannotConnect;
        case TransportError::timedOut: return TransportErrorKind::timedOut;
        case TransportError::connectionLost: return TransportErrorKind::connectionLost;
        case TransportError::tls: return TransportErrorKind::tls;
        case TransportError::aborted: return TransportErrorKind::cancelled;
        default: return TransportErrorKind::other;
    }
}

}  // namespace vxcloud::providers
