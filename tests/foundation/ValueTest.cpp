#include "VexIMLib/Foundation/Value.h"

#include <gtest/gtest.h>

#include "VexIMLib/Foundation/JSON.h"

TEST(Value, Smoke) {
    auto r = vexim::parseJSON(R"({"a":[1,2.5,"x",null,true,{"k":"a long string that is not inline"}],"b":{},"c":[],"a":1})");
    ASSERT_FALSE(r.error) << r.error->localizedDescription();
    EXPECT_EQ(vexim::writeJSON(r.value).text, R"({"a":1,"b":{},"c":[]})");
}
