// Misspelt settings.

#include "host/policy/policy_names.h"

#include <gtest/gtest.h>

#include "host/policy/default_policies.h"

namespace flow::host {
namespace {

TEST(PolicyNames, OfTheDefaultsAreKnown) {
  for (const std::string_view file : PolicyFileNames()) {
    EXPECT_TRUE(UnknownNames(DefaultPolicy(file), DefaultPolicy(file)).empty());
  }
}

TEST(PolicyNames, ThatNobodyKnowsAreListed) {
  const auto unknown = UnknownNames(
      "<?xml version='1.0'?>\n<Root>\n<Known>1 < 2</Known><!-- <Remark/>\n --><Unknwon\n a='b'/>\n"
      "<Example/></Root><",
      "<Root><Known></Known><!-- <Example/> --></Root>");
  ASSERT_EQ(unknown.size(), 1U);
  EXPECT_EQ(unknown[0].name, "Unknwon");
  EXPECT_EQ(unknown[0].line, 4U);
}

}  // namespace
}  // namespace flow::host
