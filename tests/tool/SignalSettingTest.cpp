// The FRAME.SIGNAL=VALUE form of q9db simulate's --set.
#include <gtest/gtest.h>

#include "SignalSetting.h"

namespace {

using q9tool::parseSignalSetting;
using q9tool::SignalSetting;

TEST(SignalSetting, SplitsAtTheFirstEqualsAndTheDotBeforeIt) {
  struct Case {
    const char* text;
    const char* frame;
    const char* signal;
    const char* value;
  };
  const Case cases[] = {
      {"EngineStatus.EngineSpeed=2500.5", "EngineStatus", "EngineSpeed", "2500.5"},
      {"Gear.GearPos=Reverse gear", "Gear", "GearPos", "Reverse gear"},
      {"Gear.GearPos=a=b.c", "Gear", "GearPos", "a=b.c"},  // the value may hold anything
      {"F.S=-1e-3", "F", "S", "-1e-3"},
  };
  for (const Case& c : cases) {
    SignalSetting setting;
    std::string problem;
    ASSERT_TRUE(parseSignalSetting(c.text, setting, problem)) << c.text << ": " << problem;
    EXPECT_EQ(setting.frame, c.frame);
    EXPECT_EQ(setting.signal, c.signal);
    EXPECT_EQ(setting.value, c.value);
  }
}

TEST(SignalSetting, SaysWhatIsMissing) {
  const std::pair<const char*, const char*> cases[] = {
      {"EngineSpeed=1", "expected FRAME.SIGNAL=VALUE"},
      {"Engine.Speed", "expected FRAME.SIGNAL=VALUE"},
      {"", "expected FRAME.SIGNAL=VALUE"},
      {"=1.5", "expected FRAME.SIGNAL=VALUE"},  // the dot after '=' belongs to the value
      {".Speed=1", "the frame name before '.' is missing"},
      {"Engine.=1", "the signal name between '.' and '=' is missing"},
      {"Engine.Speed=", "the value after '=' is missing"},
  };
  for (auto [text, expected] : cases) {
    SignalSetting setting;
    std::string problem;
    EXPECT_FALSE(parseSignalSetting(text, setting, problem)) << text;
    EXPECT_EQ(problem, expected) << text;
  }
}

}  // namespace
