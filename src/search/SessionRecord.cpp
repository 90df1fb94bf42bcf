#include "search/SessionRecord.h"

#include "search/FileName.h"

namespace sonra {

SessionMeta SessionRecord::toMeta() const {
    SessionMeta meta;
    meta.sessionId = id;
    meta.cwd = cwd;
    meta.projectDir = FileName::withoutLastComponent(path);
    meta.jsonlPath = path;
    meta.mtime = mtime;
    meta.bytes = size;
    meta.lastAssistantSnippet = lastSnippet;
    meta.messageCount = msgCount;
    meta.firstUserPrompt = firstUserPrompt;
    meta.source = source;
    meta.gitBranch = gitBranch;
    return meta;
}

SessionRecord SessionRecord::from(const SessionMeta& meta) {
    SessionRecord record;
    record.id = meta.sessionId;
    record.path = meta.jsonlPath;
    record.cwd = meta.cwd;
    record.project = FileName::lastComponent(meta.cwd);
    record.mtime = meta.mtime;
    record.size = meta.bytes;
    record.msgCount = meta.messageCount;
    record.firstUserPrompt = meta.firstUserPrompt;
    record.lastSnippet = meta.lastAssistantSnippet;
    record.source = meta.source;
    record.gitBranch = meta.gitBranch;
    return record;
}

}  // namespace sonra
