#include "framework/Faults.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "framework/Text.h"

namespace vxcloud::sandbox {
namespace {

bool parseInt(const std::string& text, std::int64_t& out) {
    if (text.empty() || text.size() > 18) return false;
    std::size_t i = text[0] == '-' ? 1 : 0;
    if (i == text.size()) return false;
    for (; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
    }
    out = std::stoll(text);
    return true;
}

bool fail(std::string* error, const std::string& message) {
    if (error) *error = message;
    return false;
}

// Applies one key=value of the text form (also used for the JSON form's fields).
bool apply(FaultSpec& fault, const std::string& key, const std::string& value, bool hasValue,
           std::string* error) {
    std::int64_t number = 0;
    auto needNumber = [&](std::int64_t min, std::int64_t max) {
        if (!hasValue || !parseInt(value, number) || number < min || number > max) {
            return fail(error, "fault \"" + key + "\" needs a number from " + std::to_string(min) +
                                   " to " + std::to_string(max));
        }
        return true;
    };
    auto flag = [&](bool& target) {
        if (!hasValue || value == "1" || value == "true") {
            target = true;
            return true;
        }
        if (value == "0" || value == "false") {
            target = false;
            return true;
        }
        return fail(error, "fault \"" + key + "\" takes no value, 1/0 or true/false");
    };
    if (key == "status") {
        if (!needNumber(100, 599)) return false;
        fault.status = static_cast<int>(number);
    } else if (key == "body") {
        fault.body = value;
    } else if (key == "content-type") {
        fault.contentType = value;
    } else if (key == "error") {
        fault.error = value;
    } else if (key == "retry-after") {
        if (!needNumber(0, 86400)) return false;
        fault.retryAfterSeconds = static_cast<int>(number);
    } else if (key == "drop") {
        return flag(fault.drop);
    } else if (key == "drop-after") {
        if (!needNumber(0, INT64_MAX / 2)) return false;
        fault.dropAfterBytes = number;
    } else if (key == "drop-response-after") {
        if (!needNumber(0, INT64_MAX / 2)) return false;
        fault.dropResponseAfterBytes = number;
    } else if (key == "delay") {
        if (!needNumber(0, 600000)) return false;
        fault.delayMs = static_cast<int>(number);
    } else if (key == "read-rate") {
        if (!needNumber(1, INT64_MAX / 2)) return false;
        fault.readBytesPerSecond = number;
    } else if (key == "expire-token") {
        return flag(fault.expireToken);
    } else if (key == "processed") {
        return flag(fault.processed);
    } else if (key == "quota-full") {
        return flag(fault.quotaFull);
    } else if (key == "header") {
        const auto colon = value.find(':');
        if (!hasValue || colon == std::string::npos || colon == 0) {
            return fail(error, "fault \"header\" needs Name:Value");
        }
        std::string headerValue = value.substr(colon + 1);
        while (!headerValue.empty() && headerValue.front() == ' ') headerValue.erase(headerValue.begin());
        fault.headers.emplace_back(value.substr(0, colon), headerValue);
    } else if (key == "skip") {
        if (!needNumber(0, 1000000)) return false;
        fault.skip = static_cast<int>(number);
    } else {
        return fail(error, "unknown fault \"" + key + "\"");
    }
    return true;
}

bool meaningful(const FaultSpec& f, std::string* error) {
    if (f.status == 0 && f.error.empty() && !f.drop && f.dropAfterBytes < 0 && f.dropResponseAfterBytes < 0 &&
        f.delayMs == 0 && f.readBytesPerSecond == 0 && !f.expireToken && !f.quotaFull && f.retryAfterSeconds < 0) {
        return fail(error, "the fault does nothing (give status, error, drop, drop-after, "
                           "drop-response-after, delay, read-rate, expire-token or quota-full)");
    }
    return true;
}

}  // namespace

std::optional<FaultSpec> FaultSpec::parse(std::string_view text, std::string* error) {
    FaultSpec fault;
    std::size_t pos = 0;
    while (pos <= text.size()) {
        std::size_t end = text.find(';', pos);
        if (end == std::string_view::npos) end = text.size();
        std::string item(text.substr(pos, end - pos));
        pos = end + 1;
        while (!item.empty() && item.front() == ' ') item.erase(item.begin());
        while (!item.empty() && item.back() == ' ') item.pop_back();
        if (item.empty()) continue;
        const auto eq = item.find('=');
        const std::string key = asciiLower(item.substr(0, eq));
        const bool hasValue = eq != std::string::npos;
        const std::string value = hasValue ? urlDecode(item.substr(eq + 1), false) : std::string();
        if (!apply(fault, key, value, hasValue, error)) return std::nullopt;
    }
    if (fault.status == 0 && fault.retryAfterSeconds >= 0) fault.status = 429;
    if (!meaningful(fault, error)) return std::nullopt;
    return fault;
}

std::optional<FaultSpec> FaultSpec::fromJson(const Json& value, std::string* error) {
    if (!value.is_object()) {
        fail(error, "a fault is a JSON object");
        return std::nullopt;
    }
    if (value.contains("fault")) {
        if (!value["fault"].is_string()) {
            fail(error, "\"fault\" must be a string");
            return std::nullopt;
        }
        return parse(value["fault"].get<std::string>(), error);
    }
    FaultSpec fault;
    for (const auto& [name, field] : value.items()) {
        if (name == "route" || name == "times") continue;
        std::string key = name;
        for (auto& c : key) {
            if (c == '_') c = '-';
        }
        if (key == "delay-ms") key = "delay";
        if (key == "headers" && field.is_object()) {
            for (const auto& [headerName, headerValue] : field.items()) {
                if (!headerValue.is_string() || !apply(fault, "header", headerName + ":" + headerValue.get<std::string>(), true, error)) {
                    fail(error, "fault \"headers\" maps names to strings");
                    return std::nullopt;
                }
            }
            continue;
        }
        std::string text;
        bool hasValue = true;
        if (field.is_string()) {
            text = field.get<std::string>();
        } else if (field.is_boolean()) {
            text = field.get<bool>() ? "true" : "false";
        } else if (field.is_number_integer()) {
            text = std::to_string(field.get<std::int64_t>());
        } else if (field.is_null()) {
            hasValue = false;
        } else if (key == "body") {
            text = field.dump();  // a JSON body given as JSON
        } else {
            fail(error, "fault field \"" + name + "\" has the wrong type");
            return std::nullopt;
        }
        if (!apply(fault, key, text, hasValue, error)) return std::nullopt;
    }
    if (fault.status == 0 && fault.retryAfterSeconds >= 0) fault.status = 429;
    if (!meaningful(fault, error)) return std::nullopt;
    return fault;
}

Json FaultSpec::toJson() const {
    Json out = Json::object();
    if (status) out["status"] = status;
    if (!body.empty()) out["body"] = body;
    if (!contentType.empty()) out["content_type"] = contentType;
    if (!error.empty()) out["error"] = error;
    if (retryAfterSeconds >= 0) out["retry_after"] = retryAfterSeconds;
    if (drop) out["drop"] = true;
    if (dropAfterBytes >= 0) out["drop_after"] = dropAfterBytes;
    if (dropResponseAfterBytes >= 0) out["drop_response_after"] = dropResponseAfterBytes;
    if (delayMs) out["delay"] = delayMs;
    if (readBytesPerSecond) out["read_rate"] = readBytesPerSecond;
    if (expireToken) out["expire_token"] = true;
    if (processed) out["processed"] = true;
    if (quotaFull) out["quota_full"] = true;
    if (skip) out["skip"] = skip;
    if (!headers.empty()) {
        out["headers"] = Json::object();
        for (const auto& [name, value] : headers) out["headers"][name] = value;
    }
    return out;
}

std::string FaultSpec::toString() const {
    std::string out;
    auto add = [&](const std::string& item) { out += (out.empty() ? "" : ";") + item; };
    if (status) add("status=" + std::to_string(status));
    if (!body.empty()) add("body=" + urlEncode(body));
    if (!contentType.empty()) add("content-type=" + urlEncode(contentType));
    if (!error.empty()) add("error=" + urlEncode(error));
    if (retryAfterSeconds >= 0) add("retry-after=" + std::to_string(retryAfterSeconds));
    if (drop) add("drop");
    if (dropAfterBytes >= 0) add("drop-after=" + std::to_string(dropAfterBytes));
    if (dropResponseAfterBytes >= 0) add("drop-response-after=" + std::to_string(dropResponseAfterBytes));
    if (delayMs) add("delay=" + std::to_string(delayMs));
    if (readBytesPerSecond) add("read-rate=" + std::to_string(readBytesPerSecond));
    if (expireToken) add("expire-token");
    if (processed) add("processed");
    if (quotaFull) add("quota-full");
    if (skip) add("skip=" + std::to_string(skip));
    for (const auto& [name, value] : headers) add("header=" + urlEncode(name + ":" + value));
    return out;
}

void FaultInjector::enqueue(const std::string& route, const FaultSpec& fault, int times) {
    std::lock_guard lock(mutex_);
    auto& queue = queues_[route];
    for (int i = 0; i < times; ++i) queue.push_back(fault);
}

std::optional<FaultSpec> FaultInjector::takeFrom(const std::string& queueKey) {
    const auto it = queues_.find(queueKey);
    if (it == queues_.end() || it->second.empty()) return std::nullopt;
    FaultSpec& head = it->second.front();
    if (head.skip > 0) {
        --head.skip;
        return std::nullopt;
    }
    FaultSpec fault = head;
    it->second.pop_front();
    if (it->second.empty()) queues_.erase(it);
    return fault;
}

std::optional<FaultSpec> FaultInjector::take(const std::string& route, const std::string& provider,
                                             bool tokensRefresh) {
    std::lock_guard lock(mutex_);
    if (auto fault = takeFrom(route)) return fault;
    if (!provider.empty()) {
        if (auto fault = takeFrom(provider + "/*")) return fault;
    }
    if (auto fault = takeFrom("*")) return fault;
    return drawRandom(tokensRefresh);
}

void FaultInjector::setRandom(double rate, std::uint64_t seed) {
    std::lock_guard lock(mutex_);
    randomRate_ = std::clamp(rate, 0.0, 1.0);
    random_.seed(seed);
    randomDrawn_ = 0;
}

std::int64_t FaultInjector::randomDrawn() const {
    std::lock_guard lock(mutex_);
    return randomDrawn_;
}

std::optional<FaultSpec> FaultInjector::drawRandom(bool tokensRefresh) {
    if (randomRate_ <= 0) return std::nullopt;
    if (std::uniform_real_distribution<double>(0, 1)(random_) >= randomRate_) return std::nullopt;
    FaultSpec fault;
    switch (std::uniform_int_distribution<int>(0, tokensRefresh ? 8 : 7)(random_)) {
        case 0: fault.status = 429; fault.retryAfterSeconds = 1; break;
        case 1: fault.status = 429; break;
        case 2: fault.status = 503; fault.retryAfterSeconds = 1; break;
        case 3: fault.status = 503; break;
        case 4: fault.drop = true; break;
        // Cuts the request's body, or the answer's when the request has none.
        case 5: fault.dropAfterBytes = std::uniform_int_distribution<std::int64_t>(0, 4096)(random_); break;
        // The work is done and the answer is lost: the client must look before doing it again.
        case 6: fault.dropResponseAfterBytes = std::uniform_int_distribution<std::int64_t>(0, 64)(random_); break;
        case 7: fault.delayMs = std::uniform_int_distribution<int>(50, 400)(random_); break;
        default: fault.expireToken = true; break;
    }
    ++randomDrawn_;
    return fault;
}

void FaultInjector::clear(const std::string& route) {
    std::lock_guard lock(mutex_);
    if (route.empty()) {
        queues_.clear();
    } else {
        queues_.erase(route);
    }
}

std::int64_t FaultInjector::pending(const std::string& route) const {
    std::lock_guard lock(mutex_);
    const auto it = queues_.find(route);
    return it == queues_.end() ? 0 : static_cast<std::int64_t>(it->second.size());
}

std::map<std::string, std::int64_t> FaultInjector::pendingByRoute() const {
    std::lock_guard lock(mutex_);
    std::map<std::string, std::int64_t> out;
    for (const auto& [route, queue] : queues_) out[route] = static_cast<std::int64_t>(queue.size());
    return out;
}

}  // namespace vxcloud::sandbox
