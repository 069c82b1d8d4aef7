// dro_post.h - what every sender does with a request: up to three attempts, and judging the cloud's answer. Any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace dro {

inline constexpr int kPostAttempts = 3;

enum class Pause {
    afterEveryAttempt,  // also after the last
    betweenAttempts,
};

struct PostPlan {
    const char* url;
    const char* body;
    Pause pause = Pause::afterEveryAttempt;
};

// Called with the attempt's number, from 0, and an answer (none when memory ran out for it); true ends the attempts.
using OnAnswer = std::function<bool(int attempt, const std::optional<std::string>& answer)>;
// Called with the attempt's number and the HTTP status code (0 when none arrived) when no answer came.
using OnSilence = std::function<void(int attempt, long httpStatus)>;

// Posts up to three times with the retry pause as planned. Returns true when an answer ended it. A stop of the process
// ends attempts and pauses at once.
bool post_attempts(const PostPlan& plan, const OnAnswer& onAnswer, const OnSilence& onSilence);

// The usual silence: "No response from DRO Cloud\n".
void log_no_response(int attempt, long httpStatus);

// How a sender takes an answer: the format with which it is logged, its judge (0: accepted), and what an accepted one
// is worth in the log.
struct AnswerTaking {
    const char* calledFormat;
    const char* successText;
    int (*judge)(const char* answer);
};

enum class Posted {
    unanswered,  // in three attempts, or a stop ended them
    refused,
    accepted,
};

// Posts as post_attempts does until there is an answer, and takes it. The plan's body is signed already: it begins with
// signed_start (dro_utils_token.h).
Posted post_signed(const PostPlan& plan, const AnswerTaking& taking, const OnSilence& onSilence = log_no_response);

// Texts that a sender logs for an answer's status.
struct StatusTexts {
    const char* failure;
    const char* success;
};

// Judges the integer value of `status` in an answer: 0 for 1 (accepted), -1 for 0 (refused) or another value, 1 when
// `body` is no JSON or has no status.
int judge_status(const char* body, const StatusTexts& texts);

}  // namespace dro
