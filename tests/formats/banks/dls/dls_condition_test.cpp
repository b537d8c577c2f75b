#include "formats/banks/dls/dls_condition.h"

#include <gtest/gtest.h>

#include <functional>

namespace kv {
namespace {

/// A program as it is typed: numbers are pushed, other values are operators.
struct Program : ByteWriter {
    Program& push(u32 value) {
        u16le(0x10).u32le(value);
        return *this;
    }
    Program& op(u16 code) {
        u16le(code);
        return *this;
    }
    Program& query(u16 code, u32 first, u16 second, u16 third, u64 rest) {
        u16le(code).u32le(first).u16le(second).u16le(third).u64be(rest);
        return *this;
    }
};

/// With x on top of y.
TEST(DlsCondition, OperatorsTakeTheTopFirst) {
    struct Row {
        u16 code;
        u32 y, x, result;
    };
    const Row rows[] = {
        {1, 6, 3, 2},           {2, 6, 3, 7},  {3, 6, 3, 5},  {4, 6, 3, 9},  {5, 3, 6, 3},
        {5, 6, 3, 0xFFFFFFFDU}, {6, 6, 3, 18}, {7, 3, 6, 2},  {7, 0, 6, 0},  {8, 4, 3, 1},
        {8, 0, 3, 0},           {9, 0, 3, 1},  {9, 0, 0, 0},  {10, 6, 3, 1}, {10, 3, 6, 0},
        {11, 3, 3, 1},          {12, 3, 6, 1}, {13, 3, 3, 1}, {14, 3, 3, 1}, {14, 3, 6, 0},
    };
    for (const Row& row : rows) {
        Program program;
        program.push(row.y).push(row.x).op(row.code).push(row.result).op(14);
        EXPECT_TRUE(dlsConditionHolds(program.view())) << row.code << ": " << row.y << ", " << row.x;
        program.op(15);
        EXPECT_FALSE(dlsConditionHolds(program.view())) << row.code << ": " << row.y << ", " << row.x;
    }
}

TEST(DlsCondition, QueriesAreAnswered) {
    struct Row {
        u32 first;
        u16 second, third;
        u64 rest;
        u32 value;
        bool supported;
    };
    const Row rows[] = {
        {0x178F2F24, 0xC364, 0x11D1, 0xA7600000F875AC12, 0, true},
        {0x178F2F27, 0xC364, 0x11D1, 0xA7600000F875AC12, 1, true},
        {0x178F2F28, 0xC364, 0x11D1, 0xA7600000F875AC12, 0x7FFFFFFF, true},
        {0xF14599E5, 0x4689, 0x11D2, 0xAFA600AA0024D8B6, 1, true},
        {0x2A91F713, 0xA4BF, 0x11D2, 0xBBDF00600833DBD8, 48000, true},
        {0x178F2F29, 0xC364, 0x11D1, 0xA7600000F875AC12, 0, false},
    };
    for (const Row& row : rows) {
        Program value, supported;
        value.query(0x11, row.first, row.second, row.third, row.rest).push(row.value).op(14);
        supported.query(0x12, row.first, row.second, row.third, row.rest);
        EXPECT_TRUE(dlsConditionHolds(value.view())) << row.first;
        EXPECT_EQ(dlsConditionHolds(supported.view()), row.supported) << row.first;
    }
}

TEST(DlsCondition, WhatCantBeRunHolds) {
    Program deep;
    for (int i = 0; i < 20; ++i) deep.push(0);
    EXPECT_FALSE(dlsConditionHolds(deep.view())) << "twenty words have room";
    deep.push(0);
    EXPECT_TRUE(dlsConditionHolds(deep.view())) << "and no more";
    EXPECT_TRUE(dlsConditionHolds({})) << "nothing";
    EXPECT_TRUE(dlsConditionHolds(Program().push(0).op(1).view())) << "one operand of two";
    EXPECT_TRUE(dlsConditionHolds(Program().push(0).op(0x13).view())) << "an unknown operator";
    EXPECT_TRUE(dlsConditionHolds(Program().push(0).op(0x10).view())) << "a constant that is cut off";
}

} // namespace
} // namespace kv
