// state/EncodeJob.h: a save's encoding, run once by whichever thread gets to it first.
#pragma once

#include "files/DatabaseFile.h"

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>

namespace quillon::state {

// A background save encodes off the window's thread, while the window only reads the document. Anything that
// would change the document or its headers first calls finish(): it waits for a running encoding, or runs a
// queued one itself, so the worker never reads a document that is changing, and no caller waits on a queue
// that is not moving.
class EncodeJob {
public:
    explicit EncodeJob(std::function<files::EncodedDatabase()> encode) : encode_(std::move(encode)) {}

    // Returns once the encoding is done (here or elsewhere); result() then holds it.
    void finish()
    {
        std::unique_lock lock(mutex_);
        if (state_ == State::queued) {
            state_ = State::running;
            lock.unlock();
            run();
            lock.lock();
            state_ = State::done;
            done_.notify_all();
            return;
        }
        done_.wait(lock, [this] { return state_ == State::done; });
    }

    // The document is going away: a queued encoding never starts; a running one is waited for.
    void abandon()
    {
        std::unique_lock lock(mutex_);
        if (state_ == State::queued) {
            state_ = State::done;
            error_ = std::make_exception_ptr(std::runtime_error("The database was closed before it was saved."));
            done_.notify_all();
            return;
        }
        done_.wait(lock, [this] { return state_ == State::done; });
    }

    // The encoded file, or what stopped it, thrown again. Once finish() has returned, it belongs to the one
    // thread that commits it.
    files::EncodedDatabase& result()
    {
        if (error_)
            std::rethrow_exception(error_);
        return *encoded_;
    }

private:
    void run()
    {
        try {
            encoded_ = encode_();
        } catch (...) {
            error_ = std::current_exception();
        }
        encode_ = nullptr; // lets go of what the encoding needed (a copy of the credentials)
    }

    enum class State { queued, running, done };
    std::mutex mutex_;
    std::condition_variable done_;
    State state_ = State::queued;
    std::function<files::EncodedDatabase()> encode_;
    std::optional<files::EncodedDatabase> encoded_;
    std::exception_ptr error_;
};

} // namespace quillon::state
