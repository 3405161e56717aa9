#pragma once
// Pieces every provider client shares: a call's value-or-error result, the transport's
// failure kinds in ProviderError's words, and a progress counter for uploads that go out
// in several requests.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <utility>

#include "vxcloud/model/ProviderError.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::providers {

// The value of a successful call, or the error of a failed one.
template <typename T, typename E>
class Result {
public:
    static Result success(T value) {
        Result r;
        r.value_ = std::move(value);
        return r;
    }
    static Result failure(E error) {
        Result r;
        r.error_ = std::move(error);
        return r;
    }
    template <typename U>
    static Result failureOf(const Result<U, E>& other) {
        return failure(other.error());
    }
    bool ok() const { return value_.has_value(); }
    // Reading the side a result does not hold is a programming error: it throws instead
    // of reading an empty optional, and the session's guard reports it as a failure.
    const T& value() const { return checked(value_, "value() of a failed call"); }
    T& value() { return checked(value_, "value() of a failed call"); }
    const E& error() const { return checked(error_, "error() of a successful call"); }

private:
    template <typename O>
    static auto& checked(O& slot, const char* what) {
        if (!slot) throw std::logic_error(what);
        return *slot;
    }
    std::optional<T> value_;
    std::optional<E> error_;
};

TransportErrorKind transportErrorKind(TransportError error);

// The largest single upload request: the configured limit (0: none) within the service's own.
inline std::int64_t singleRequestLimit(std::int64_t configured, std::int64_t serviceLimit) {
    return configured > 0 ? std::min(configured, serviceLimit) : serviceLimit;
}

// A chunk size the service accepts: the configured size (0: `fallback`) rounded down to whole
// units, at least one unit.
inline std::int64_t chunkInUnits(std::int64_t configured, std::int64_t fallback, std::int64_t unit) {
    const std::int64_t wanted = configured > 0 ? configured : fallback;
    return std::max(unit, wanted / unit * unit);
}

// Turns per-request byte counts into one never-decreasing count for the document, so
// pieces add up and a repeated request does not make progress jump back.
class UploadProgressTracker {
public:
    using Callback = std::function<void(std::int64_t completed, std::int64_t total)>;

    UploadProgressTracker(const Callback& progress, std::int64_t total) : progress_(progress), total_(total) {}

    // The transport's progress callback for a request whose body starts at `offset`.
    std::function<void(std::int64_t, std::int64_t)> forRequestAt(std::int64_t offset) {
        if (!progress_) return {};
        return [this, offset](std::int64_t sent, std::int64_t) { advance(offset + sent); };
    }
    void advance(std::int64_t completed) {
        completed = std::min(completed, total_);
        if (!progress_ || completed <= reported_) return;
        reported_ = completed;
        progress_(completed, total_);
    }

private:
    const Callback& progress_;
    std::int64_t total_;
    std::int64_t reported_ = 0;
};

}  // namespace vxcloud::providers
