#include <gtest/gtest.h>

#include "platform/UUID.h"

namespace wrixel2::platform {
namespace {

TEST(UUID, ShortAndLongFormsAreOneValue) {
  const auto heartRate = UUID::withString("180D");
  EXPECT_EQ(heartRate, UUID::withString("0000180d-0000-1000-8000-00805F9B34FB"));
  EXPECT_EQ(heartRate, UUID::withString("0000180d"));
  EXPECT_EQ(heartRate.text(), "180d");
  EXPECT_EQ(heartRate.longText(), "0000180d-0000-1000-8000-00805f9b34fb");
  for (const auto* text : {"12345678", "00000009-0000-3512-2118-0009af100700"}) {
    EXPECT_EQ(UUID::withString(text).text(), text);
  }
}

TEST(UUID, RefusesAnythingElse) {
  for (const auto* text :
       {"", "180", "18 d", "180g", "0000180d0000", "-------------------------------------",
        "0000180d-0000-1000-8000+00805f9b34fb", "0000180d-0000-1000-8000-00805f9b34f",
        "0000180d-0000-1000-8000-00805f9b34fbx", "0000180d-0000-1000-8000-00805f9b34fg"}) {
    EXPECT_FALSE(UUID::fromText(text)) << text;
  }
}

TEST(UUID, NamesGiveTheirVersion5Identifier) {
  // The example of RFC 9562, A.4: the DNS name space and "www.example.com".
  const auto nameSpace = UUID::withString("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
  EXPECT_EQ(UUID::version5(nameSpace, "www.example.com").text(),
            "2ed6657d-e927-568b-95e1-2665a8aea6a2");
}

}  // namespace
}  // namespace wrixel2::platform
