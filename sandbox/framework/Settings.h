#pragma once
// A provider's settings bound to the module's own struct: each key names a field with its
// type and range, so configure() checks every key before it changes anything and
// settings() shows them all. A module binds them once (ProviderModule::bindSettings) and
// reads its struct under the store lock as before.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <type_traits>
#include <vector>

namespace vxcloud::sandbox {

template <class S>
struct SettingField {
    std::string key;
    std::function<bool(S&, const nlohmann::json&, std::string&)> assign;
    std::function<nlohmann::json(const S&)> show;
};

// What a value above `max` does: refuse it, or stand for `max`.
enum class AboveMax { refuse, clamp };

// A whole number from `min` to `max`.
template <class S, class T>
    requires(std::is_integral_v<T> && !std::is_same_v<T, bool>)
SettingField<S> setting(std::string key, T S::*field, std::int64_t min,
                        std::int64_t max = std::numeric_limits<std::int64_t>::max() / 2,
                        AboveMax above = AboveMax::refuse) {
    const bool bounded = above == AboveMax::refuse && max < std::numeric_limits<std::int64_t>::max() / 2;
    const std::string range = bounded ? "from " + std::to_string(min) + " to " + std::to_string(max)
                                      : "of at least " + std::to_string(min);
    auto assign = [=](S& settings, const nlohmann::json& value, std::string& error) {
        const bool whole = value.is_number_integer();
        const std::int64_t n = whole ? value.get<std::int64_t>() : 0;
        if (!whole || n < min || (n > max && above == AboveMax::refuse)) {
            error = key + " must be a whole number " + range;
            return false;
        }
        settings.*field = static_cast<T>(std::min(n, max));
        return true;
    };
    return {key, assign, [field](const S& settings) { return nlohmann::json(settings.*field); }};
}

// true or false.
template <class S>
SettingField<S> setting(std::string key, bool S::*field) {
    auto assign = [=](S& settings, const nlohmann::json& value, std::string& error) {
        if (!value.is_boolean()) {
            error = key + " must be true or false";
            return false;
        }
        settings.*field = value.get<bool>();
        return true;
    };
    return {key, assign, [field](const S& settings) { return nlohmann::json(settings.*field); }};
}

// One of a few words ("personal", "business").
template <class S>
SettingField<S> setting(std::string key, std::string S::*field, std::vector<std::string> allowed) {
    auto assign = [=](S& settings, const nlohmann::json& value, std::string& error) {
        if (!value.is_string() || std::find(allowed.begin(), allowed.end(), value.get<std::string>()) == allowed.end()) {
            std::string words;
            for (const auto& word : allowed) words += (words.empty() ? "" : ", ") + word;
            error = key + " must be one of: " + words;
            return false;
        }
        settings.*field = value.get<std::string>();
        return true;
    };
    return {key, assign, [field](const S& settings) { return nlohmann::json(settings.*field); }};
}

// Any text that is not empty (a secret, a name).
template <class S>
SettingField<S> setting(std::string key, std::string S::*field) {
    auto assign = [=](S& settings, const nlohmann::json& value, std::string& error) {
        if (!value.is_string() || value.get<std::string>().empty()) {
            error = key + " must be a string that is not empty";
            return false;
        }
        settings.*field = value.get<std::string>();
        return true;
    };
    return {key, assign, [field](const S& settings) { return nlohmann::json(settings.*field); }};
}

// The settings of one module, seen without their type.
class BoundSettings {
public:
    virtual ~BoundSettings() = default;
    virtual bool configure(const nlohmann::json& changes, std::string& error) = 0;
    virtual nlohmann::json current() const = 0;
};

template <class S>
class BoundSettingsOf : public BoundSettings {
public:
    BoundSettingsOf(S& target, std::mutex& guard, std::string title, std::vector<SettingField<S>> fields)
        : target_(target), guard_(guard), title_(std::move(title)), fields_(std::move(fields)) {}

    bool configure(const nlohmann::json& changes, std::string& error) override {
        S next = copy();
        for (const auto& [key, value] : changes.items()) {
            // clang before 16 cannot capture a structured binding: capture a plain reference.
            const auto field = std::find_if(fields_.begin(), fields_.end(),
                                            [&name = key](const auto& f) { return f.key == name; });
            if (field == fields_.end()) {
                error = "unknown " + title_ + " setting \"" + key + "\"";
                return false;
            }
            if (!field->assign(next, value, error)) return false;
        }
        std::lock_guard lock(guard_);
        target_ = next;
        return true;
    }

    nlohmann::json current() const override {
        const S now = copy();
        nlohmann::json out = nlohmann::json::object();
        for (const auto& field : fields_) out[field.key] = field.show(now);
        return out;
    }

private:
    S copy() const {
        std::lock_guard lock(guard_);
        return target_;
    }

    S& target_;
    std::mutex& guard_;
    std::string title_;
    std::vector<SettingField<S>> fields_;
};

}  // namespace vxcloud::sandbox
