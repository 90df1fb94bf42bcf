#include "speech/SpawnedEngine.h"

#include <unicode/unistr.h>

#include <system_error>
#include <utility>

#include "frame/ChildProcess.h"
#include "frame/FileProbe.h"
#include "frame/Text.h"
#include "frame/WorkerPool.h"
#include "speech/SpeechTextFile.h"

namespace sonra {
namespace {

using Clock = std::chrono::steady_clock;

/// How long a process that was asked to end may take before it is killed.
constexpr auto graceToEnd = std::chrono::seconds(5);

SynthError cannotWriteText(const std::exception& cause) {
    return SynthError::synthesisFailed("couldn't write speech text: " + std::string(cause.what()));
}

/// Whatever goes wrong in `work`, as the one kind of error that callers know.
std::optional<SynthError> errorOf(const std::function<void()>& work) {
    try {
        work();
        return std::nullopt;
    } catch (const SynthError& error) {
        return error;
    } catch (const std::exception& error) {
        return SynthError::synthesisFailed(error.what());
    }
}

/// As UTF-8, with replacement characters for what isn't, and without white space around it.
std::string readableOutput(const std::string& bytes) {
    std::string readable;
    icu::UnicodeString::fromUTF8(bytes).toUTF8String(readable);
    return std::string(text::trimmed(readable));
}

std::string failureDetail(int status, const std::string& output) {
    if (output.empty()) return "exit code " + std::to_string(status);
    return "exit " + std::to_string(status) + ": " + output;
}

}  // namespace

SpawnedEngine::SpawnedEngine(WorkerPool& pool, Names names, Limits limits)
    : pool_(pool), names_(std::move(names)), limits_(limits) {}

std::string SpawnedEngine::newTextFile() const {
    try {
        return SpeechTextFile::newPath("sonra-" + text::lowered(names_.brief) + "-");
    } catch (const std::system_error& error) {
        throw cannotWriteText(error);
    }
}

KokoroSpawnPlan SpawnedEngine::buildPlan(const std::string& /*text*/, const SpeechConfig& config,
                                         const std::string& outURL, Chunking chunking) const {
    return planFor(newTextFile(), config, outURL, chunking);
}

void SpawnedEngine::synthesize(std::string text, SpeechConfig config, SynthesisSink sink,
                               Chunking chunking, ChunkCallback onChunk, DoneCallback onDone) {
    std::uint64_t number = 0;
    {
        const MutexLock lock(procLock_);
        number = ++latest_;
    }
    pool_.post([self = shared_from_this(),
                job = Job{number, std::move(text), std::move(config), std::move(sink), chunking},
                onChunk = std::move(onChunk), onDone = std::move(onDone)] {
        onDone(errorOf([&] { self->perform(job, onChunk); }));
    });
}

void SpawnedEngine::perform(const Job& job, const ChunkCallback& onChunk) {
    const auto& url = job.sink.fileUrl();
    if (!url) throw SynthError::synthesisFailed(names_.type + " requires a .file sink");
    const auto textFile = newTextFile();
    const auto plan = planFor(textFile, job.config, *url, job.chunking);
    std::optional<SpeechTextFile> file;
    try {
        file.emplace(textFile, spokenText(job.text));
    } catch (const std::system_error& error) {
        throw cannotWriteText(error);
    }
    runPlan(plan, *url, job);
    // The caller may start the next request from here, and then finds nothing left of this one.
    file.reset();
    onChunk({.url = *url, .text = job.text, .index = 0});
}

void SpawnedEngine::runPlan(const KokoroSpawnPlan& plan, const std::string& outURL,
                            const Job& job) {
    if (isCancelled(job.number)) throw SynthError::synthesisFailed(names_.brief + " cancelled");
    auto [process, error] = ChildProcess::spawn({.executable = plan.executablePath,
                                                 .arguments = plan.arguments,
                                                 .environment = plan.environment,
                                                 .output = ChildProcess::Stream::pipe,
                                                 .error = ChildProcess::ErrorStream::likeOutput});
    if (!process) throw SynthError::synthesisFailed(names_.brief + " spawn failed: " + error);
    const std::shared_ptr<ChildProcess> running(std::move(process));
    {
        const MutexLock lock(procLock_);
        currentProc_ = running;
    }
    // It may have been cancelled between the two.
    if (isCancelled(job.number)) running->terminate();
    const auto failure = errorOf([&] { finish(*running, outURL, job.chunking); });
    {
        const MutexLock lock(procLock_);
        if (currentProc_ == running) currentProc_.reset();
    }
    if (failure) throw SynthError(*failure);
}

void SpawnedEngine::finish(ChildProcess& process, const std::string& outURL,
                           Chunking chunking) const {
    const auto limit = chunking == Chunking::streaming ? limits_.streaming : limits_.combined;
    const auto deadline = Clock::now() + limit;
    // Read first: a process that writes more than a pipe holds doesn't end before it is read.
    const auto output = process.readToEnd(limit);
    const auto status = output.atEnd ? process.waitForExit(deadline - Clock::now()) : std::nullopt;
    if (!status) {
        process.terminateWithin(graceToEnd);
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit).count();
        throw SynthError::synthesisFailed("no end after " + std::to_string(seconds) + " seconds");
    }
    if (*status == 0 && fileExists(outURL)) return;
    throw SynthError::synthesisFailed(failureDetail(*status, readableOutput(output.bytes)));
}

bool SpawnedEngine::isCancelled(std::uint64_t number) {
    const MutexLock lock(procLock_);
    return cancelled_ == number;
}

void SpawnedEngine::cancelCurrent() {
    std::shared_ptr<ChildProcess> process;
    {
        const MutexLock lock(procLock_);
        cancelled_ = latest_;
        process = currentProc_;
    }
    if (process) process->terminate();
}

}  // namespace sonra
