// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/resources/KFAQuota.h>

#include "../Records.h"

namespace {

using namespace KFA;

const std::string kLimit = "<current>1</current><soft>2</soft><hard>3</hard>";
const std::string kInfo = kLimit + "<count>4</count><expire>5</expire>";

TEST(Quota, FirstMissingElementEndsTheRead) {
  KFAUGIDQuotaLimit limit;
  limit.setID(1);
  EXPECT_EQ(readFrom("<inode_limit>" + kLimit + "</inode_limit>", limit), -1);
  EXPECT_EQ(limit.getID(), 1);
  // The space limit is read before the inode limit.
  EXPECT_EQ(readFrom("<id>7</id><inode_limit>" + kLimit + "</inode_limit>", limit), -1);
  EXPECT_EQ(limit.getInodes().getHard(), 0);
  EXPECT_EQ(readFrom("<id>7</id><space_limit>" + kLimit + "</space_limit>", limit), -1);
  EXPECT_EQ(limit.getSpace().getHard(), 3);

  KFAUGIDQuotaLimit::QuotaLimit values;
  values.setCurrent(9);
  EXPECT_EQ(readFrom("<soft>2</soft>", values), -1);
  EXPECT_EQ(values.getCurrent(), 0);
  EXPECT_EQ(values.getSoft(), 2);
  EXPECT_EQ(readFrom("<current>x</current><soft>2</soft><hard>3</hard>", values), 0);
}

TEST(Quota, InodeUsageStandsUnderItsOwnName) {
  KFAQuotaStats stats;
  const std::string around[] = {"<disk_space>" + kInfo + "</disk_space>", "<ugids>" + kInfo + "</ugids>"};
  EXPECT_EQ(readFrom(around[0] + "<diks_inodes>" + kInfo + "</diks_inodes>" + around[1], stats), 0);
  EXPECT_EQ(stats.getInodes().getExpire(), 5);
  EXPECT_EQ(readFrom(around[0] + "<disk_inodes>" + kInfo + "</disk_inodes>" + around[1], stats), -1);
}

TEST(Quota, LimitsAndGraceAreSpecifiedWhenTheyCouldBeRead) {
  KFAUGIDQuotaInfo info;
  EXPECT_EQ(readFrom("<ugid_limits/>", info), -1);
  EXPECT_EQ(readFrom("<kind>1</kind><ugid_limits/>", info), 0);
  EXPECT_TRUE(info.getLimits().isSpecified());
  EXPECT_FALSE(info.getGrace().isSpecified());
  EXPECT_EQ(readFrom("<kind>1</kind><ugid_limits><ugid_limit/></ugid_limits><grace_period/>", info), 0);
  EXPECT_FALSE(info.getLimits().isSpecified());
  EXPECT_FALSE(info.getGrace().isSpecified());
}

}  // namespace
