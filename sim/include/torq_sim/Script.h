#pragma once

// Scripted answers: what a test wants the simulated HAL to answer to one ITorq method instead of
// what the model would. An answer is a SentAnswer, the same record the journal keeps of every
// reply: a failing status (exception, service-specific error or transaction error) replaces the
// model, which then never sees the call; an OK answer lets the model handle the call and then
// replaces the out values it sets (result, records or text), keeping the model's for the others.
// Shared by successive HAL instances, so answers survive a restart. Thread-safe. Builds for the
// device too: errors are returned, never thrown.

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "torq_sim/Journal.h"

namespace torq_sim {

/** What one ITorq method returns besides its status. */
enum class OutValue {
    kNone,     // init
    kResult,   // the int out value of every other method
    kRecords,  // stateRequest
    kText,     // propertyGet
};

/** The ITorq method names, in transaction order. */
const std::vector<std::string>& torqMethods();

/** The out value of `method`, or nothing when ITorq has no such method. */
std::optional<OutValue> outValueOf(const std::string& method);

/**
 * Why `answer` cannot be given to `method`, or an empty string when it can: an unknown method, an
 * out value the method does not have, an out value together with a failing status (a failed
 * reply carries no out value), or a service-specific error without EX_SERVICE_SPECIFIC.
 */
std::string checkAnswer(const std::string& method, const SentAnswer& answer);

/** Scripted answers per method: a standing one and a queue of one-shot ones that go first. */
class Script {
  public:
    /** Answers every later call of `method` with `answer`. Returns checkAnswer's verdict. */
    std::string set(const std::string& method, const SentAnswer& answer);
    /** Answers the next call of `method` (after the once-answers queued before it). */
    std::string once(const std::string& method, const SentAnswer& answer);
    /** Drops the standing and the queued answers of `method`; false for an unknown method. */
    bool clear(const std::string& method);
    /** Drops every scripted answer: the model answers everything again. */
    void clearAll();

    /** The answer for the call of `method` being served (consuming a once-answer), if any. */
    std::optional<SentAnswer> take(const std::string& method);

    /**
     * A HAL slow to answer: calls of `method` are recorded and answered as usual, then wait in
     * the HAL before the reply goes back, until releaseHeld(). False for an unknown method.
     */
    bool hold(const std::string& method);
    /** Lets every waiting call go and holds no method any more. */
    void releaseHeld();
    /** What a call of `method` does before its reply goes back: waits while it is held. */
    void waitWhileHeld(const std::string& method);

  private:
    std::mutex mutex_;
    std::condition_variable released_;
    std::set<std::string> holding_;
    std::map<std::string, SentAnswer> standing_;
    std::map<std::string, std::deque<SentAnswer>> queued_;
};

}  // namespace torq_sim
