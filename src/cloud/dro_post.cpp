#include "dro_post.h"

#include "dro_durations.h"
#include "dro_json.h"
#include "dro_log.h"
#include "dro_stop.h"
#include "dro_utils_post.h"

namespace dro {

bool post_attempts(const PostPlan& plan, const OnAnswer& onAnswer, const OnSilence& onSilence) {
    for (int attempt = 0; attempt < kPostAttempts; ++attempt) {
        std::optional<std::string> answer;
        long httpStatus = 0;
        if (curl_post(plan.url, plan.body, answer, &httpStatus) != 0) {
            if (onAnswer(attempt, answer)) {
                return true;
            }
        } else if (stop_requested()) {
            return false;
        } else {
            onSilence(attempt, httpStatus);
        }
        answer.reset();
        const bool last = attempt == kPostAttempts - 1;
        if ((!last || plan.pause == Pause::afterEveryAttempt) && !pause_for(durations().retryPause)) {
            break;
        }
    }
    return false;
}

void log_no_response(int /*attempt*/, long /*httpStatus*/) {
    LOG_ERROR("No response from DRO Cloud\n");
}

Posted post_signed(const PostPlan& plan, const AnswerTaking& taking, const OnSilence& onSilence) {
    Posted posted = Posted::unanswered;
    post_attempts(
        plan,
        [&](int /*attempt*/, const std::optional<std::string>& answer) {
            LOG_TRACE(taking.calledFormat, answer ? answer->c_str() : "");
            posted = Posted::refused;
            if (answer && taking.judge(answer->c_str()) == 0) {
                LOG_TRACE("%s", taking.successText);
                posted = Posted::accepted;
            }
            return true;
        },
        onSilence);
    return posted;
}

int judge_status(const char* body, const StatusTexts& texts) {
    const Json answer(cJSON_Parse(body));
    if (!answer) {
        return 1;
    }
    const cJSON* status = json_member(answer.get(), "status");
    if (status == nullptr) {
        LOG_ERROR(" Parse input string for key status not found\n");
        return 1;
    }
    switch (status->valueint) {
        case 0:
            LOG_ERROR("%s", texts.failure);
            return -1;
        case 1:
            LOG_TRACE("%s", texts.success);
            return 0;
        default:
            LOG_ERROR("No Status code received...\n");
            return -1;
    }
}

}  // namespace dro
