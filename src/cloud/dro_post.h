// dro_post.h - sends requests in up to three attempts and evaluates the cloud's answers. Any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace dro {

inline constexpr int kPostAttempts = 3;

enum class Pause {
    afterEveryAttempt,  // including the last
    betweenAttempts,
};

struct PostPlan {
    const char* url;
    const char* body;
    Pause pause = Pause::afterEveryAttempt;
};

// Called with the attempt's number, from 0, and the answer (`std::nullopt` when it did not fit in memory). Returns true
// to end the attempts.
using OnAnswer = std::function<bool(int attempt, const std::optional<std::string>& answer)>;
// Called when no answer arrived, with the attempt's number and the HTTP status code (0 when there was none).
using OnSilence = std::function<void(int attempt, long httpStatus)>;

// Posts up to three times with the retry pause as planned. Returns true when an answer ended the attempts. A stop
// request ends attempts and pauses at once.
bool post_attempts(const PostPlan& plan, const OnAnswer& onAnswer, const OnSilence& onSilence);

// The usual handler: logs "No response from DRO Cloud\n".
void log_no_response(int attempt, long httpStatus);

// How a sender handles an answer: the format of its log line, its evaluation (0: accepted), and the text logged when it
// was accepted.
struct AnswerTaking {
    const char* calledFormat;
    const char* successText;
    int (*judge)(const char* answer);
};

enum class Posted {
    unanswered,  // after three attempts, or interrupted by a stop request
    refused,
    accepted,
};

// Posts as post_attempts does until an answer arrives, and evaluates it. The plan's body is already signed: it begins
// with signed_start (dro_utils_token.h).
Posted post_signed(const PostPlan& plan, const AnswerTaking& taking, const OnSilence& onSilence = log_no_response);

// Texts that a sender logs for an answer's status.
struct StatusTexts {
    const char* failure;
    const char* success;
};

// Evaluates the integer `status` of an answer: 0 for 1 (accepted), -1 for 0 (refused) or another value, 1 when `body`
// is not JSON or has no status.
int judge_status(const char* body, const StatusTexts& texts);

}  // namespace dro
