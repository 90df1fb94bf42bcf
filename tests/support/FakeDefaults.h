#pragma once

#include <string>

#include "frame/Json.h"
#include "platform/UserDefaults.h"

namespace sonra::test {

/// Settings in memory. The test reads and writes `values`, an object.
class FakeDefaults : public UserDefaults {
  public:
    [[nodiscard]] std::optional<double> number(std::string_view key) const override {
        return json::doubleAt(values, key);
    }
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const override {
        return json::boolAt(values, key);
    }
    [[nodiscard]] std::optional<std::string> string(std::string_view key) const override {
        return json::stringAt(values, key);
    }
    void set(std::string_view key, double value) override { values[std::string(key)] = value; }
    void set(std::string_view key, bool value) override { values[std::string(key)] = value; }
    void set(std::string_view key, const std::string& value) override {
        values[std::string(key)] = value;
    }
    void remove(std::string_view key) override { values.erase(std::string(key)); }

    Json values = Json::object();
};

}  // namespace sonra::test
