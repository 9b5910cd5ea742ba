// The resend cadence of the search request.
#include <gtest/gtest.h>

#include "search/SearchSchedule.h"

TEST(ResendSchedule, FirstRequestAtOnceSecondAfterEightWholeSeconds) {
  CResendSchedule s;
  const uint32_t t0 = 1700000000u;
  ASSERT_TRUE(s.Due(t0));
  s.Sent(t0);
  EXPECT_EQ(s.Interval(), 7u);
  EXPECT_FALSE(s.Due(t0 + 1));
  EXPECT_FALSE(s.Due(t0 + 7));
  EXPECT_TRUE(s.Due(t0 + 8));
  s.Sent(t0 + 8);
  EXPECT_FALSE(s.Due(t0 + 8 + 12));
  EXPECT_TRUE(s.Due(t0 + 8 + 13));
}

TEST(ResendSchedule, IntervalReachesItsCapWithTheSixtiethRequest) {
  CResendSchedule s;
  uint32_t t = 1000000u;
  for (int n = 1; n <= 59; ++n) {
    ASSERT_TRUE(s.Due(t));
    s.Sent(t);
    t += s.Interval() + 1;
  }
  EXPECT_EQ(s.Interval(), 297u);
  s.Sent(t);  // the 60th
  EXPECT_EQ(s.Interval(), 300u);
  s.Sent(t + 301);
  EXPECT_EQ(s.Interval(), 300u);
}

TEST(ResendSchedule, ResetStartsAgainAtTwo) {
  CResendSchedule s;
  s.Sent(100);
  s.Sent(200);
  s.Reset();
  EXPECT_EQ(s.Interval(), 2u);
  EXPECT_TRUE(s.Due(3));
  EXPECT_FALSE(s.Due(2));
}

TEST(ResendSchedule, WaitEndsWhenTheRequestIsDue) {
  CResendSchedule s;
  s.Sent(1000);  // interval 7: due at second 1008
  EXPECT_EQ(s.MsUntilDue(1000 * 1000), 8000);
  EXPECT_EQ(s.MsUntilDue(1007 * 1000 + 999), 1);
  EXPECT_EQ(s.MsUntilDue(1008 * 1000), 0);
  EXPECT_EQ(s.MsUntilDue(5000 * 1000), 0);
}
