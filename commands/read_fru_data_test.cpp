#include "read_fru_data.h"

#include <gtest/gtest.h>

#include <memory>

using namespace rmcpp::commands;

namespace {

using Bytes = std::vector<uint8_t>;

FruInventoryAreaInfo area_info(const Bytes &b) { return decode_get_fru_inventory_area_info(b.data(), b.size()); }

FruDataChunk read_data(const Bytes &b, bool words) { return decode_read_fru_data(b.data(), b.size(), words); }

// Heap copy of exactly n bytes, so an over-read is caught by the sanitizer.
std::unique_ptr<uint8_t[]> exact_copy(const Bytes &b, size_t n)
{
    std::unique_ptr<uint8_t[]> copy(new uint8_t[n ? n : 1]);
    std::copy(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(n), copy.get());
    return copy;
}

// A BMC holding `image` that answers Read FRU Data with at most `limit`
// units and completion code `refusal` above that.
struct FakeFru {
    Bytes image;
    bool words = false;
    uint8_t limit = 255;
    uint8_t refusal = kCcCannotReturnRequestedBytes;
    std::vector<uint8_t> counts_asked;

    Bytes answer(const Bytes &request)
    {
        EXPECT_EQ(request.size(), 4u);
        const size_t unit = words ? 2 : 1;
        const size_t offset = (request[1] | (request[2] << 8)) * unit;
        const uint8_t count = request[3];
        counts_asked.push_back(count);
        if (count > limit) return {refusal};
        if (offset >= image.size()) return {kCcParameterOutOfRange};
        Bytes r = {0x00, count};
        for (size_t i = 0; i < count * unit; ++i) r.push_back(offset + i < image.size() ? image[offset + i] : 0xFF);
        return r;
    }
};

// Reads the whole area through the planner; returns the bytes read, or
// nothing when the planner gave up.
bool read_all(FakeFru &bmc, uint8_t chunk, uint8_t min_chunk, Bytes &out)
{
    FruReadPlan plan = start_fru_read(static_cast<uint16_t>(bmc.image.size()), bmc.words, chunk, min_chunk);
    for (int guard = 0; guard < 10000 && !fru_read_done(plan); ++guard) {
        const FruChunkRequest req = next_fru_chunk(plan);
        EXPECT_GT(req.count, 0);
        const Bytes response = bmc.answer(build_read_fru_data(0, req.offset, req.count));
        const FruDataChunk data = read_data(response, bmc.words);
        switch (on_fru_chunk_response(plan, req, data.completion_code, data.count)) {
        case FruChunkOutcome::advanced: out.insert(out.end(), data.data.begin(), data.data.end()); break;
        case FruChunkOutcome::retry_smaller: break;
        case FruChunkOutcome::failed: return false;
        }
    }
    out.resize(std::min(out.size(), bmc.image.size()));
    return fru_read_done(plan);
}

Bytes counting(size_t n)
{
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(i * 7 + 3);
    return b;
}

}  // namespace

TEST(FruRequests, GetFruInventoryAreaInfo)
{
    EXPECT_EQ(build_get_fru_inventory_area_info(0x05), (Bytes{0x05}));
}

TEST(FruRequests, ReadFruDataOffsetLittleEndian)
{
    EXPECT_EQ(build_read_fru_data(0x00, 0x1234, 0x20), (Bytes{0x00, 0x34, 0x12, 0x20}));
    EXPECT_EQ(build_read_fru_data(0xFE, 0xFFFF, 0xFF), (Bytes{0xFE, 0xFF, 0xFF, 0xFF}));
}

TEST(FruRequests, ReadFruDataCountZeroRefused)
{
    EXPECT_TRUE(build_read_fru_data(0, 0, 0).empty());
}

TEST(FruAreaInfo, SizeAndAccessByBytes)
{
    FruInventoryAreaInfo info = area_info({0x00, 0x00, 0x01, 0x00});
    EXPECT_EQ(info.status, FruResponseStatus::ok);
    EXPECT_EQ(info.area_size, 256);
    EXPECT_FALSE(info.access_by_words);
}

TEST(FruAreaInfo, AccessByWordsReservedBitsIgnored)
{
    FruInventoryAreaInfo info = area_info({0x00, 0x34, 0x12, 0x01});
    EXPECT_EQ(info.status, FruResponseStatus::ok);
    EXPECT_EQ(info.area_size, 0x1234);
    EXPECT_TRUE(info.access_by_words);
    info = area_info({0x00, 0x34, 0x12, 0xFE});
    EXPECT_EQ(info.status, FruResponseStatus::ok);
    EXPECT_FALSE(info.access_by_words);
}

TEST(FruAreaInfo, CompletionCode)
{
    FruInventoryAreaInfo info = area_info({0xCB});
    EXPECT_EQ(info.status, FruResponseStatus::completion_code);
    EXPECT_EQ(info.completion_code, 0xCB);
    EXPECT_EQ(info.area_size, 0);
}

TEST(FruAreaInfo, EveryPrefixTruncated)
{
    const Bytes full = {0x00, 0x00, 0x02, 0x00};
    for (size_t n = 0; n < full.size(); ++n) {
        auto copy = exact_copy(full, n);
        FruInventoryAreaInfo info = decode_get_fru_inventory_area_info(copy.get(), n);
        EXPECT_EQ(info.status, FruResponseStatus::truncated) << n;
        EXPECT_EQ(info.area_size, 0) << n;
    }
    EXPECT_EQ(decode_get_fru_inventory_area_info(nullptr, 4).status, FruResponseStatus::truncated);
}

TEST(FruAreaInfo, TrailingBytesRejected)
{
    EXPECT_EQ(area_info({0x00, 0x00, 0x02, 0x00, 0x00}).status, FruResponseStatus::bad_length);
}

TEST(FruReadData, Bytes)
{
    FruDataChunk c = read_data({0x00, 0x03, 0xAA, 0xBB, 0xCC}, false);
    EXPECT_EQ(c.status, FruResponseStatus::ok);
    EXPECT_EQ(c.count, 3);
    EXPECT_EQ(c.data, (Bytes{0xAA, 0xBB, 0xCC}));
}

TEST(FruReadData, WordsCarryTwiceTheCount)
{
    FruDataChunk c = read_data({0x00, 0x02, 0x01, 0x02, 0x03, 0x04}, true);
    EXPECT_EQ(c.status, FruResponseStatus::ok);
    EXPECT_EQ(c.count, 2);
    EXPECT_EQ(c.data, (Bytes{0x01, 0x02, 0x03, 0x04}));
    EXPECT_EQ(read_data({0x00, 0x02, 0x01, 0x02, 0x03}, true).status, FruResponseStatus::truncated);
}

TEST(FruReadData, CompletionCode)
{
    FruDataChunk c = read_data({kCcCannotReturnRequestedBytes}, false);
    EXPECT_EQ(c.status, FruResponseStatus::completion_code);
    EXPECT_EQ(c.completion_code, 0xCA);
    EXPECT_TRUE(c.data.empty());
}

TEST(FruReadData, CountDisagreesWithData)
{
    EXPECT_EQ(read_data({0x00, 0x04, 0x01, 0x02, 0x03}, false).status, FruResponseStatus::truncated);
    EXPECT_EQ(read_data({0x00, 0x02, 0x01, 0x02, 0x03}, false).status, FruResponseStatus::bad_length);
}

TEST(FruReadData, EveryPrefixTruncated)
{
    const Bytes full = {0x00, 0x04, 0x10, 0x20, 0x30, 0x40};
    for (size_t n = 0; n < full.size(); ++n) {
        auto copy = exact_copy(full, n);
        FruDataChunk c = decode_read_fru_data(copy.get(), n, false);
        EXPECT_EQ(c.status, FruResponseStatus::truncated) << n;
        EXPECT_TRUE(c.data.empty()) << n;
    }
}

TEST(FruChunkPlanner, ChunksCoverTheAreaWithAShortLastOne)
{
    FruReadPlan plan = start_fru_read(40, false, 16, 4);
    std::vector<std::pair<int, int>> asked;
    while (!fru_read_done(plan)) {
        FruChunkRequest req = next_fru_chunk(plan);
        asked.emplace_back(req.offset, req.count);
        ASSERT_EQ(on_fru_chunk_response(plan, req, 0x00, req.count), FruChunkOutcome::advanced);
    }
    EXPECT_EQ(asked, (std::vector<std::pair<int, int>>{{0, 16}, {16, 16}, {32, 8}}));
    EXPECT_EQ(next_fru_chunk(plan).count, 0);
}

TEST(FruChunkPlanner, EmptyAreaIsDoneAtOnce)
{
    FruReadPlan plan = start_fru_read(0, false, 16, 1);
    EXPECT_TRUE(fru_read_done(plan));
    EXPECT_EQ(next_fru_chunk(plan).count, 0);
}

TEST(FruChunkPlanner, CannotReturnBytesHalvesDownToMinimum)
{
    FruReadPlan plan = start_fru_read(100, false, 32, 4);
    FruChunkRequest req = next_fru_chunk(plan);
    EXPECT_EQ(on_fru_chunk_response(plan, req, 0xCA, 0), FruChunkOutcome::retry_smaller);
    EXPECT_EQ(plan.chunk, 16);
    EXPECT_EQ(plan.offset, 0u);
    req = next_fru_chunk(plan);
    EXPECT_EQ(req.count, 16);
    EXPECT_EQ(on_fru_chunk_response(plan, req, 0xCA, 0), FruChunkOutcome::retry_smaller);
    req = next_fru_chunk(plan);
    EXPECT_EQ(on_fru_chunk_response(plan, req, 0xCA, 0), FruChunkOutcome::retry_smaller);
    EXPECT_EQ(plan.chunk, 4);
    req = next_fru_chunk(plan);
    EXPECT_EQ(req.count, 4);
    EXPECT_EQ(on_fru_chunk_response(plan, req, 0xCA, 0), FruChunkOutcome::failed);
}

TEST(FruChunkPlanner, HalvingStopsAtMinimumNotBelow)
{
    FruReadPlan plan = start_fru_read(100, false, 10, 6);
    FruChunkRequest req = next_fru_chunk(plan);
    EXPECT_EQ(on_fru_chunk_response(plan, req, 0xC9, 0), FruChunkOutcome::retry_smaller);
    EXPECT_EQ(plan.chunk, 6);
}

TEST(FruChunkPlanner, HalvesFromAShortLastChunk)
{
    FruReadPlan plan = start_fru_read(20, false, 16, 1);
    FruChunkRequest req = next_fru_chunk(plan);
    ASSERT_EQ(on_fru_chunk_response(plan, req, 0, 16), FruChunkOutcome::advanced);
    req = next_fru_chunk(plan);
    EXPECT_EQ(req.count, 4);
    EXPECT_EQ(on_fru_chunk_response(plan, req, 0xCA, 0), FruChunkOutcome::retry_smaller);
    EXPECT_EQ(plan.chunk, 2);
}

TEST(FruChunkPlanner, OtherCompletionCodesFail)
{
    for (uint8_t cc : {0x81, 0xC0, 0xC3, 0xCB, 0xFF}) {
        FruReadPlan plan = start_fru_read(100, false, 32, 4);
        EXPECT_EQ(on_fru_chunk_response(plan, next_fru_chunk(plan), cc, 0), FruChunkOutcome::failed) << int{cc};
        EXPECT_EQ(plan.chunk, 32);
    }
}

TEST(FruChunkPlanner, ShortReadContinuesFromWhereItStopped)
{
    FruReadPlan plan = start_fru_read(64, false, 32, 1);
    FruChunkRequest req = next_fru_chunk(plan);
    EXPECT_EQ(on_fru_chunk_response(plan, req, 0, 10), FruChunkOutcome::advanced);
    req = next_fru_chunk(plan);
    EXPECT_EQ(req.offset, 10);
    EXPECT_EQ(req.count, 32);
}

TEST(FruChunkPlanner, NoProgressOrTooMuchFails)
{
    FruReadPlan plan = start_fru_read(64, false, 32, 1);
    FruChunkRequest req = next_fru_chunk(plan);
    EXPECT_EQ(on_fru_chunk_response(plan, req, 0, 0), FruChunkOutcome::failed);
    EXPECT_EQ(on_fru_chunk_response(plan, req, 0, 33), FruChunkOutcome::failed);
    EXPECT_EQ(plan.offset, 0u);
    // An answer to a request for another offset is not taken.
    EXPECT_EQ(on_fru_chunk_response(plan, FruChunkRequest{8, 32}, 0, 32), FruChunkOutcome::failed);
    EXPECT_EQ(plan.offset, 0u);
}

TEST(FruChunkPlanner, ParametersClamped)
{
    FruReadPlan plan = start_fru_read(10, false, 0, 0);
    EXPECT_EQ(plan.chunk, 1);
    EXPECT_EQ(plan.min_chunk, 1);
    plan = start_fru_read(10, false, 8, 20);
    EXPECT_EQ(plan.min_chunk, 8);
}

TEST(FruChunkPlanner, WordsCountAreaInWords)
{
    FruReadPlan plan = start_fru_read(41, true, 8, 1);
    EXPECT_EQ(plan.area_units, 21u);
}

TEST(FruChunkPlanner, ReadsWholeAreaFromABmcThatLimitsTheCount)
{
    FakeFru bmc;
    bmc.image = counting(300);
    bmc.limit = 20;
    Bytes got;
    ASSERT_TRUE(read_all(bmc, 128, 8, got));
    EXPECT_EQ(got, bmc.image);
    // 128 and 64 and 32 refused, then 16 a time.
    ASSERT_GE(bmc.counts_asked.size(), 4u);
    EXPECT_EQ((Bytes(bmc.counts_asked.begin(), bmc.counts_asked.begin() + 4)), (Bytes{128, 64, 32, 16}));
    for (size_t i = 4; i < bmc.counts_asked.size(); ++i) EXPECT_LE(bmc.counts_asked[i], 16) << i;
}

TEST(FruChunkPlanner, ParameterOutOfRangeAlsoHalves)
{
    FakeFru bmc;
    bmc.image = counting(50);
    bmc.limit = 10;
    bmc.refusal = kCcParameterOutOfRange;
    Bytes got;
    ASSERT_TRUE(read_all(bmc, 40, 1, got));
    EXPECT_EQ(got, bmc.image);
}

TEST(FruChunkPlanner, GivesUpWhenTheMinimumIsRefused)
{
    FakeFru bmc;
    bmc.image = counting(50);
    bmc.limit = 3;
    Bytes got;
    EXPECT_FALSE(read_all(bmc, 32, 8, got));
    EXPECT_EQ(bmc.counts_asked, (Bytes{32, 16, 8}));
}

TEST(FruChunkPlanner, ReadsWordAccessedAreaOfOddSize)
{
    FakeFru bmc;
    bmc.image = counting(77);
    bmc.words = true;
    bmc.limit = 10;
    Bytes got;
    ASSERT_TRUE(read_all(bmc, 32, 2, got));
    EXPECT_EQ(got, bmc.image);
}
