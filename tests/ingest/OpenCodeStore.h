#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <vector>

namespace sonra::test {

/// OpenCode's end of its SQLite store: a connection that writes.
class OpenCodeStore {
  public:
    explicit OpenCodeStore(const std::string& path, const std::string& journal = "wal") {
        EXPECT_EQ(sqlite3_open(path.c_str(), &handle_), SQLITE_OK);
        run("PRAGMA journal_mode=" + journal);
        // No test is about a machine that loses its power.
        run("PRAGMA synchronous=OFF");
        run("CREATE TABLE IF NOT EXISTS message(id text primary key, session_id text not null,"
            " time_created integer not null, time_updated integer not null, data text not null)");
        run("CREATE TABLE IF NOT EXISTS part(id text primary key, message_id text not null,"
            " session_id text not null, time_created integer not null,"
            " time_updated integer not null, data text not null)");
        run("CREATE INDEX IF NOT EXISTS message_session_idx ON message(session_id)");
        run("CREATE INDEX IF NOT EXISTS part_message_idx ON part(message_id)");
    }
    ~OpenCodeStore() { sqlite3_close(handle_); }
    OpenCodeStore(const OpenCodeStore&) = delete;
    OpenCodeStore& operator=(const OpenCodeStore&) = delete;

    void run(const std::string& sql) {
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK) << error;
        sqlite3_free(error);
    }

    void message(const std::string& id, const std::string& data,
                 const std::string& session = "ses_1") {
        insert("INSERT OR REPLACE INTO message VALUES(?1, ?2, 0, 0, ?3)", {id, session, data});
    }
    void part(const std::string& id, const std::string& messageId, const std::string& data) {
        insert("INSERT INTO part VALUES(?1, ?2, 'ses_1', 0, 0, ?3)", {id, messageId, data});
    }
    void changePart(const std::string& id, const std::string& data) {
        insert("UPDATE part SET data = ?2 WHERE id = ?1", {id, data});
    }

    /// The data of an assistant's message, complete at `ms` or not yet.
    static std::string reply(std::int64_t completed = 0) {
        const std::string end =
            completed == 0 ? "" : R"(,"completed":)" + std::to_string(completed);
        return R"({"role":"assistant","time":{"created":1)" + end + "}}";
    }
    /// The data of a text, complete at `ms` or not yet.
    static std::string text(const std::string& words, std::int64_t ended = 0) {
        const std::string end = ended == 0 ? "" : R"(,"end":)" + std::to_string(ended);
        return R"({"type":"text","text":")" + words + R"(","time":{"start":1)" + end + "}}";
    }

  private:
    void insert(const char* sql, const std::vector<std::string>& values) {
        sqlite3_stmt* statement = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(handle_, sql, -1, &statement, nullptr), SQLITE_OK);
        int index = 0;
        for (const auto& value : values)
            sqlite3_bind_text(statement, ++index, value.c_str(), -1, SQLITE_TRANSIENT);
        EXPECT_EQ(sqlite3_step(statement), SQLITE_DONE) << sqlite3_errmsg(handle_);
        sqlite3_finalize(statement);
    }

    sqlite3* handle_ = nullptr;
};

}  // namespace sonra::test
