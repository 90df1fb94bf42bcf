#include "frame/LogRecord.h"

#include <algorithm>
#include <utility>

#include "frame/LogJson.h"
#include "frame/LogTime.h"

namespace sonra {
namespace {

constexpr std::size_t typicalExtra = 256;

std::string quotedKey(std::string_view key) {
    std::string text;
    logjson::appendString(text, key);
    return text + ":";
}

std::string stringField(std::string_view key, std::string_view value) {
    std::string text = quotedKey(key);
    logjson::appendString(text, value);
    return text;
}

const Json::object_t& membersOf(const Json& value) {
    static const Json::object_t none;
    return value.is_object() ? value.get_ref<const Json::object_t&>() : none;
}

}  // namespace

/// Builds one line; every part begins with its separator.
class LogRecord::Writer {
  public:
    Writer(const LogRecord& record, int level, std::string_view message)
        : record_(record), level_(level), message_(message) {
        out_.reserve(record.length_ + message.size() + typicalExtra);
    }

    void entry(const Entry& entry) {
        if (entry.text.empty()) failed_ = true;
        out_ += std::exchange(separator_, ',');
        out_ += entry.text;
        if (entry.kind == Kind::level) out_ += std::to_string(level_);
        if (entry.kind == Kind::message) logjson::appendString(out_, message_);
        if (entry.kind == Kind::time) {
            out_ += '"';
            appendLogTime(out_);
            out_ += '"';
        }
    }

    void field(const std::string& key, const Json& value) {
        if (failed_) return;
        out_ += std::exchange(separator_, ',');
        logjson::appendString(out_, key);
        out_ += ':';
        failed_ = !logjson::appendRedacted(out_, key, value, record_.verbose_);
    }

    std::string finish() {
        if (failed_)
            return R"({"level":50,"service":")" + record_.service_ +
                   R"(","msg":"log encode failed"})";
        out_ += '}';
        return std::move(out_);
    }

  private:
    const LogRecord& record_;
    const int level_;
    const std::string_view message_;
    std::string out_;
    char separator_ = '{';
    bool failed_ = false;
};

LogRecord::LogRecord(Identity identity, bool verbose)
    : service_(std::move(identity.service)), verbose_(verbose) {
    put("env", stringField("env", identity.env), Kind::fixed);
    put("host", stringField("host", identity.host), Kind::fixed);
    put("service", stringField("service", service_), Kind::fixed);
    put("version", stringField("version", identity.version), Kind::fixed);
    put("level", quotedKey("level"), Kind::level);
    put("msg", quotedKey("msg"), Kind::message);
    put("time", quotedKey("time"), Kind::time);
}

void LogRecord::put(std::string_view key, std::string text, Kind kind) {
    const auto at =
        std::lower_bound(entries_.begin(), entries_.end(), key,
                         [](const Entry& entry, std::string_view k) { return entry.key < k; });
    length_ += text.size() + 1;
    if (at == entries_.end() || at->key != key) {
        entries_.insert(at, {std::string(key), std::move(text), kind});
    } else if (at->kind == Kind::field) {
        at->text = std::move(text);
    }
}

void LogRecord::merge(const Json& fields) {
    for (const auto& [key, value] : membersOf(fields)) {
        if (key == "cause") continue;
        std::string text = quotedKey(key);
        if (!logjson::appendRedacted(text, key, value, verbose_)) text.clear();
        put(key, std::move(text), Kind::field);
    }
}

std::string LogRecord::line(int level, std::string_view message, const Json& extra) const {
    Writer writer(*this, level, message);
    auto entry = entries_.begin();
    for (const auto& [key, value] : membersOf(extra)) {
        for (; entry != entries_.end() && entry->key < key; ++entry) writer.entry(*entry);
        const bool isTaken = entry != entries_.end() && entry->key == key;
        if (isTaken && entry->kind != Kind::field) continue;
        if (isTaken) ++entry;
        writer.field(key, value);
    }
    for (; entry != entries_.end(); ++entry) writer.entry(*entry);
    return writer.finish();
}

}  // namespace sonra
