#include "sel_list.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "scripted_transport_testkit.h"

namespace rmcpp::commands {
namespace {

using testkit::Request;
using testkit::ScriptedTransport;

Bytes sel_info(uint16_t entries)
{
    return {0x51, static_cast<uint8_t>(entries), static_cast<uint8_t>(entries >> 8), 0x00, 0x40,
            0x10, 0x20, 0x30, 0x40, 0xFF, 0xFF, 0xFF, 0xFF, 0x02};
}

// A threshold event: Temperature sensor 30h, upper critical going high.
Bytes record(uint16_t id)
{
    return {static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8), 0x02, 0x00, 0x10, 0x20, 0x5F, 0x20, 0x00, 0x04,
            0x01, 0x30, 0x01, 0x59, 0x60, 0x55};
}

Bytes entry_answer(uint16_t next, const Bytes &rec)
{
    Bytes b(2 + rec.size());
    b[0] = static_cast<uint8_t>(next);
    b[1] = static_cast<uint8_t>(next >> 8);
    std::copy(rec.begin(), rec.end(), b.begin() + 2);
    return b;
}

Bytes get_entry(uint16_t reservation, uint16_t id, uint8_t offset, uint8_t count)
{
    return {static_cast<uint8_t>(reservation), static_cast<uint8_t>(reservation >> 8), static_cast<uint8_t>(id),
            static_cast<uint8_t>(id >> 8), offset, count};
}

TEST(ReadSelInfo, DecodesTheAnswer)
{
    ScriptedTransport t;
    t.queue(0x00, sel_info(3));
    const SelInfo info = read_sel_info(t);
    EXPECT_EQ(info.entries, 3);
    EXPECT_EQ(info.free_space, 0x4000);
    EXPECT_EQ(info.last_add_time, 0x40302010u);
    EXPECT_EQ(t.asked.at(0), (Request{0x0A, 0x40, {}}));
}

TEST(ReadSelInfo, AShortAnswerIsMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, {0x51, 0x01});
    try {
        read_sel_info(t);
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
        EXPECT_EQ(e.step, "Get SEL Info");
    }
}

TEST(ReadSel, FollowsNextRecordIdsFromZeroToFFFF)
{
    ScriptedTransport t;
    t.queue(0x00, sel_info(3));
    t.queue(0x00, entry_answer(0x0002, record(0x0001)));
    t.queue(0x00, entry_answer(0x0005, record(0x0002)));
    t.queue(0x00, entry_answer(0xFFFF, record(0x0005)));
    const auto entries = read_sel(t);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].record.record_id, 1);
    EXPECT_EQ(entries[1].record.record_id, 2);
    EXPECT_EQ(entries[2].record.record_id, 5);
    EXPECT_EQ(entries[2].record.sensor_number, 0x30);
    EXPECT_EQ(entries[2].record.timestamp, 0x5F201000u);
    ASSERT_EQ(t.asked.size(), 4u);
    EXPECT_EQ(t.asked[1], (Request{0x0A, 0x43, get_entry(0, 0x0000, 0, 0xFF)}));
    EXPECT_EQ(t.asked[2], (Request{0x0A, 0x43, get_entry(0, 0x0002, 0, 0xFF)}));
    EXPECT_EQ(t.asked[3], (Request{0x0A, 0x43, get_entry(0, 0x0005, 0, 0xFF)}));
}

TEST(ReadSel, AnEmptySelAsksForNoEntry)
{
    ScriptedTransport t;
    t.queue(0x00, sel_info(0));
    EXPECT_TRUE(read_sel(t).empty());
    EXPECT_EQ(t.asked.size(), 1u);
}

TEST(ReadSel, NotPresentOnTheFirstEntryMeansEmptiedMeanwhile)
{
    ScriptedTransport t;
    t.queue(0x00, sel_info(1));
    t.queue(0xCB);
    EXPECT_TRUE(read_sel(t).empty());
}

TEST(ReadSel, NotPresentLaterIsAnError)
{
    ScriptedTransport t;
    t.queue(0x00, sel_info(2));
    t.queue(0x00, entry_answer(0x0002, record(0x0001)));
    t.queue(0xCB);
    try {
        read_sel(t);
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::completion_code);
        EXPECT_EQ(e.completion_code, 0xCB);
        EXPECT_EQ(e.step, "Get SEL Entry");
    }
}

TEST(ReadSel, CannotReturnTheWholeRecordFallsBackToPartialReadsUnderAReservation)
{
    ScriptedTransport t;
    const Bytes rec = record(0x0001);
    t.queue(0x00, sel_info(1));
    t.queue(0xCA);
    t.queue(0x00, {0x34, 0x12});  // Reserve SEL: 1234h
    t.queue(0x00, entry_answer(0xFFFF, Bytes(rec.begin(), rec.begin() + 8)));
    t.queue(0x00, entry_answer(0xFFFF, Bytes(rec.begin() + 8, rec.end())));
    const auto entries = read_sel(t);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(Bytes(entries[0].raw.begin(), entries[0].raw.end()), rec);
    ASSERT_EQ(t.asked.size(), 5u);
    EXPECT_EQ(t.asked[2], (Request{0x0A, 0x42, {}}));
    EXPECT_EQ(t.asked[3].data, get_entry(0x1234, 0x0000, 0, 8));
    EXPECT_EQ(t.asked[4].data, get_entry(0x1234, 0x0000, 8, 8));
}

TEST(ReadSel, PartialReadsHalveOnCannotReturn)
{
    ScriptedTransport t;
    const Bytes rec = record(0x0001);
    t.queue(0x00, sel_info(1));
    t.queue(0xCA);
    t.queue(0x00, {0x01, 0x00});
    t.queue(0xCA);  // 8 bytes too many
    for (size_t at = 0; at < 16; at += 4)
        t.queue(0x00, entry_answer(0xFFFF, Bytes(rec.begin() + at, rec.begin() + at + 4)));
    const auto entries = read_sel(t);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].record.record_id, 1);
    EXPECT_EQ(t.asked[3].data, get_entry(1, 0, 0, 8));
    EXPECT_EQ(t.asked[4].data, get_entry(1, 0, 0, 4));
    EXPECT_EQ(t.asked.back().data, get_entry(1, 0, 12, 4));
}

TEST(ReadSel, AShortWholeRecordAnswerIsReadAgainInParts)
{
    ScriptedTransport t;
    const Bytes rec = record(0x0001);
    t.queue(0x00, sel_info(1));
    t.queue(0x00, entry_answer(0xFFFF, Bytes(rec.begin(), rec.begin() + 10)));
    t.queue(0x00, {0x07, 0x00});
    t.queue(0x00, entry_answer(0xFFFF, Bytes(rec.begin(), rec.begin() + 8)));
    t.queue(0x00, entry_answer(0xFFFF, Bytes(rec.begin() + 8, rec.end())));
    const auto entries = read_sel(t);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(Bytes(entries[0].raw.begin(), entries[0].raw.end()), rec);
}

TEST(ReadSel, ALostReservationRestartsTheRecord)
{
    ScriptedTransport t;
    const Bytes rec = record(0x0001);
    t.queue(0x00, sel_info(1));
    t.queue(0xCA);
    t.queue(0x00, {0x01, 0x00});
    t.queue(0x00, entry_answer(0xFFFF, Bytes(rec.begin(), rec.begin() + 8)));
    t.queue(0xC5);  // reservation cancelled
    t.queue(0x00, {0x02, 0x00});
    t.queue(0x00, entry_answer(0xFFFF, Bytes(rec.begin(), rec.begin() + 8)));
    t.queue(0x00, entry_answer(0xFFFF, Bytes(rec.begin() + 8, rec.end())));
    const auto entries = read_sel(t);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(t.asked[6].data, get_entry(2, 0, 0, 8));
    EXPECT_EQ(t.asked[7].data, get_entry(2, 0, 8, 8));
}

TEST(ReadSel, ReservationsLostForEverGiveUp)
{
    ScriptedTransport t;
    t.answer = [](const Request &rq) -> Reply {
        if (rq.cmd == 0x40) return {0, 0, sel_info(1)};
        if (rq.cmd == 0x42) return {0, 0, {0x01, 0x00}};
        if (rq.data.at(0) == 0 && rq.data.at(1) == 0) return {0, 0xCA, {}};
        return {0, 0xC5, {}};
    };
    try {
        read_sel(t, {});
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
    }
    EXPECT_LT(t.asked.size(), 20u);
}

TEST(ReadSel, ARecordComingRoundAgainStopsTheRead)
{
    ScriptedTransport t;
    t.queue(0x00, sel_info(2));
    t.queue(0x00, entry_answer(0x0002, record(0x0001)));
    t.queue(0x00, entry_answer(0x0000 + 2, record(0x0002)));  // points at itself
    try {
        read_sel(t);
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
        EXPECT_EQ(e.step, "Get SEL Entry");
    }
    EXPECT_EQ(t.asked.size(), 3u);
}

TEST(ReadSel, NextRecordZeroIsRefused)
{
    ScriptedTransport t;
    t.queue(0x00, sel_info(2));
    t.queue(0x00, entry_answer(0x0000, record(0x0001)));
    EXPECT_THROW(read_sel(t), CommandError);
    EXPECT_EQ(t.asked.size(), 2u);
}

TEST(ReadSel, AnEndlessChainStopsAtTheLimit)
{
    ScriptedTransport t;
    t.answer = [](const Request &rq) -> Reply {
        if (rq.cmd == 0x40) return {0, 0, sel_info(100)};
        const uint16_t id = static_cast<uint16_t>(rq.data[2] | (rq.data[3] << 8));
        return {0, 0, entry_answer(static_cast<uint16_t>(id + 1), record(id))};
    };
    SelReadLimits limits;
    limits.max_entries = 50;
    EXPECT_THROW(read_sel(t, limits), CommandError);
    EXPECT_EQ(t.asked.size(), 51u);
}

TEST(ReadSel, AnOverlongAnswerIsMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, sel_info(1));
    Bytes answer = entry_answer(0xFFFF, record(1));
    answer.push_back(0x00);
    t.queue(0x00, answer);
    try {
        read_sel(t);
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
    }
}

TEST(ReadSel, ALostExchangeIsAnExchangeError)
{
    ScriptedTransport t;
    t.queue(0x00, sel_info(1));
    try {
        read_sel(t);
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::exchange);
    }
}

Bytes clear_request(uint16_t reservation, uint8_t action)
{
    return {static_cast<uint8_t>(reservation), static_cast<uint8_t>(reservation >> 8), 'C', 'L', 'R', action};
}

TEST(ClearSel, ReservesInitiatesAndPollsUntilCompleted)
{
    ScriptedTransport t;
    t.queue(0x00, {0x22, 0x11});
    t.queue(0x00, {0x00});  // in progress
    t.queue(0x00, {0x00});
    t.queue(0x00, {0x01});  // completed
    clear_sel(t, {20, std::chrono::milliseconds(0)});
    ASSERT_EQ(t.asked.size(), 4u);
    EXPECT_EQ(t.asked[0], (Request{0x0A, 0x42, {}}));
    EXPECT_EQ(t.asked[1], (Request{0x0A, 0x47, clear_request(0x1122, 0xAA)}));
    EXPECT_EQ(t.asked[2], (Request{0x0A, 0x47, clear_request(0x1122, 0x00)}));
    EXPECT_EQ(t.asked[3], (Request{0x0A, 0x47, clear_request(0x1122, 0x00)}));
}

TEST(ClearSel, CompletedAtOnceNeedsNoPoll)
{
    ScriptedTransport t;
    t.queue(0x00, {0x01, 0x00});
    t.queue(0x00, {0x01});
    clear_sel(t, {20, std::chrono::milliseconds(0)});
    EXPECT_EQ(t.asked.size(), 2u);
}

TEST(ClearSel, AnErasureThatNeverEndsGivesUpAfterTheLastPoll)
{
    ScriptedTransport t;
    t.answer = [](const Request &rq) -> Reply {
        if (rq.cmd == 0x42) return {0, 0, {0x01, 0x00}};
        return {0, 0, {0x00}};
    };
    try {
        clear_sel(t, {5, std::chrono::milliseconds(0)});
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
        EXPECT_EQ(e.step, "Clear SEL");
    }
    EXPECT_EQ(t.asked.size(), 2u + 5u);
}

TEST(ClearSel, AReservationLostWhilePollingIsTakenAgain)
{
    ScriptedTransport t;
    t.queue(0x00, {0x01, 0x00});
    t.queue(0x00, {0x00});
    t.queue(0xC5);
    t.queue(0x00, {0x02, 0x00});
    t.queue(0x00, {0x01});
    clear_sel(t, {20, std::chrono::milliseconds(0)});
    ASSERT_EQ(t.asked.size(), 5u);
    EXPECT_EQ(t.asked[4].data, clear_request(0x0002, 0x00));
}

TEST(ClearSel, ARefusedEraseIsACompletionCodeError)
{
    ScriptedTransport t;
    t.queue(0x00, {0x01, 0x00});
    t.queue(0xC5);
    try {
        clear_sel(t, {20, std::chrono::milliseconds(0)});
        FAIL();
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::completion_code);
        EXPECT_EQ(e.completion_code, 0xC5);
    }
}

TEST(ClearSel, AnUnknownProgressValueIsMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, {0x01, 0x00});
    t.queue(0x00, {0x07});
    EXPECT_THROW(clear_sel(t, {20, std::chrono::milliseconds(0)}), CommandError);
}

}  // namespace
}  // namespace rmcpp::commands
