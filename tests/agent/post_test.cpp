// The signed request: what goes over the wire, whom the agent trusts, and what it takes for an answer.
#include <optional>
#include <string>

#include "agent_test.h"
#include "dro_utils.h"

namespace dro_test {
namespace {

class Post : public AgentTest {};

TEST_F(Post, SendsExactlyTheBody) {
    std::optional<std::string> answer;
    EXPECT_EQ(dro::curl_post((cloud.base_url() + "x/").c_str(), "{}", answer), 12U);
    EXPECT_EQ(answer, R"({"status":1})");
    EXPECT_EQ(cloud.requests().size(), 1U);
}

}  // namespace
}  // namespace dro_test
