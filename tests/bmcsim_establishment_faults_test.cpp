// Each establishment fault of the simulator changes exactly the field it
// names in the Open Session Response, RAKP 2 or RAKP 4 (loopback 127.0.0.43).
#include <functional>

#include <gtest/gtest.h>

#include "bmcsim.h"
#include "bmcsim_console.h"

namespace {

using bmcsim::EstFault;
using bmcsim::Kind;
using simtest::Bytes;
using simtest::Console;

constexpr const char *kAddress = "127.0.0.43";
constexpr uint32_t kBmcId = 0x01020304;
constexpr uint32_t kConsoleId = 0xA0B0C0D0;

bmcsim::Config base()
{
    bmcsim::Config c;
    c.address = kAddress;
    c.bmc_session_id = kBmcId;
    c.users = {{"admin", "secret", 4, true}};
    return c;
}

struct Case {
    EstFault fault;
    int index;
    int value;
    std::function<void(Bytes &)> change;  // applied to the correct answer
};

Case at(EstFault f, size_t offset, uint8_t v, int index = -1, int value = -1)
{
    return {f, index, value, [=](Bytes &b) { b.at(offset) = v; }};
}

Case flip(EstFault f, size_t offset, int index = -1)
{
    return {f, index, -1, [=](Bytes &b) { b.at(offset) ^= 0x01; }};
}

Case resize(int n)
{
    return {EstFault::PayloadLength, -1, n, [=](Bytes &b) {
                b.resize(16 + static_cast<size_t>(n), 0x00);
                b[14] = static_cast<uint8_t>(n);
                b[15] = 0;
            }};
}

// Faults every answer has, given the answer's payload type and length.
std::vector<Case> common(uint8_t type, size_t payload_length)
{
    return {
        at(EstFault::RmcpVersion, 0, 0x07),
        at(EstFault::RmcpReserved, 1, 0x01),
        at(EstFault::RmcpSequence, 2, 0xFE),
        at(EstFault::RmcpClass, 3, 0x06),
        at(EstFault::AuthFormat, 4, 0x07),
        at(EstFault::PayloadType, 5, static_cast<uint8_t>(type + 2)),
        at(EstFault::PayloadType, 5, 0x51, -1, 0x51),
        at(EstFault::AuthenticatedBit, 5, static_cast<uint8_t>(type | 0x40)),
        at(EstFault::EncryptedBit, 5, static_cast<uint8_t>(type | 0x80)),
        at(EstFault::SessionId, 6, 0x01),
        at(EstFault::SequenceNumber, 10, 0x01),
        at(EstFault::SequenceNumber, 13, 0x01, -1, 0x01000000),
        at(EstFault::LengthField, 14, static_cast<uint8_t>(payload_length + 1)),
        at(EstFault::LengthField, 14, static_cast<uint8_t>(payload_length - 1), -1, static_cast<int>(payload_length - 1)),
        resize(7),
        resize(8),
        resize(static_cast<int>(payload_length) + 8),
        at(EstFault::Tag, 16, 0x09, -1, 0x09),
        at(EstFault::Status, 17, 0x12),
        at(EstFault::Status, 17, 0x0D, -1, 0x0D),
        at(EstFault::ConsoleSessionId, 20, static_cast<uint8_t>((kConsoleId & 0xFF) + 1)),
        at(EstFault::PayloadByte, 16 + 6, 0x42, 6, 0x42),
    };
}

class BmcsimEstablishmentFaults : public ::testing::Test {
protected:
    BmcsimEstablishmentFaults() : console(kAddress)
    {
        auto c = base();
        std::array<uint8_t, 16> rc{};
        rc.fill(0x77);
        c.rc = rc;
        sim = std::make_unique<bmcsim::Simulator>(c);
        sim->start();
    }

    // Sends `request` without a fault, then again with each fault, and
    // compares every faulty answer with the changed correct one.
    void check(const Bytes &request, std::function<void(bmcsim::Config &, const Case &)> set, std::vector<Case> cases,
               const std::string &what)
    {
        Bytes correct = console.exchange(request);
        ASSERT_FALSE(correct.empty()) << what;
        for (const auto &k : cases) {
            sim->modify([&](bmcsim::Config &c) { set(c, k); });
            Bytes want = correct;
            k.change(want);
            EXPECT_EQ(console.exchange(request), want)
                << what << ": fault " << static_cast<int>(k.fault) << " index " << k.index << " value " << k.value;
        }
        sim->modify([&](bmcsim::Config &c) { set(c, Case{EstFault::None, -1, -1, {}}); });
        EXPECT_EQ(console.exchange(request), correct) << what;
    }

    Bytes open() { return simtest::open_session_request(1, 4, kConsoleId, 1, 1, 1); }
    Bytes rakp1() { return simtest::rakp1_request(2, kBmcId, Bytes(16, 0x11), 4, "admin"); }
    Bytes rakp3()
    {
        Bytes in(16, 0x77);
        simtest::le32(in, kConsoleId);
        in = simtest::cat(in, simtest::cat({4, 5}, simtest::text("admin")));
        return simtest::rakp3_request(3, 0, kBmcId, simtest::hmac_sha1(simtest::pad20(simtest::text("secret")), in));
    }

    std::unique_ptr<bmcsim::Simulator> sim;
    Console console;
};

void set_open(bmcsim::Config &c, const Case &k) { c.open_session = {{}, k.fault, k.index, k.value}; }
void set_rakp2(bmcsim::Config &c, const Case &k) { c.rakp2 = {{}, k.fault, k.index, k.value}; }
void set_rakp4(bmcsim::Config &c, const Case &k) { c.rakp4 = {{}, k.fault, k.index, k.value}; }

TEST_F(BmcsimEstablishmentFaults, OpenSessionResponse)
{
    auto cases = common(0x11, 36);
    cases.push_back(at(EstFault::Reserved, 19, 0x01));
    cases.push_back(at(EstFault::GrantedPrivilege, 18, 0x03));
    cases.push_back(at(EstFault::GrantedPrivilege, 18, 0x05, -1, 5));
    cases.push_back(flip(EstFault::AuthAlgorithm, 32));
    cases.push_back(flip(EstFault::IntegrityAlgorithm, 40));
    cases.push_back(flip(EstFault::ConfidentialityAlgorithm, 48));
    cases.push_back(at(EstFault::ConfidentialityAlgorithm, 48, 0x00, -1, 0));
    check(open(), set_open, cases, "open session");
}

TEST_F(BmcsimEstablishmentFaults, Rakp2)
{
    ASSERT_EQ(console.exchange(open()).size(), 52u);
    auto cases = common(0x13, 60);
    cases.push_back(at(EstFault::Reserved, 18, 0x01));
    cases.push_back(at(EstFault::Reserved, 19, 0x01, 1));
    cases.push_back(flip(EstFault::KeyExchangeCode, 75));
    cases.push_back(flip(EstFault::KeyExchangeCode, 56, 0));
    check(rakp1(), set_rakp2, cases, "RAKP 2");
}

TEST_F(BmcsimEstablishmentFaults, Rakp4)
{
    ASSERT_EQ(console.exchange(open()).size(), 52u);
    ASSERT_EQ(console.exchange(rakp1()).size(), 76u);
    auto cases = common(0x15, 20);
    cases.push_back(at(EstFault::Reserved, 18, 0x01));
    cases.push_back(at(EstFault::Reserved, 19, 0x01, 1));
    cases.push_back(flip(EstFault::IntegrityCheckValue, 35));
    cases.push_back(flip(EstFault::IntegrityCheckValue, 24, 0));
    check(rakp3(), set_rakp4, cases, "RAKP 4");
    EXPECT_EQ(sim->stats().sessions_established, 1u);
}

TEST_F(BmcsimEstablishmentFaults, FaultyFirstAnswerThenTheCorrectOne)
{
    Bytes correct = console.exchange(open());
    sim->modify([](bmcsim::Config &c) {
        c.open_session.fault = EstFault::Tag;
        c.open_session.reply.faulty_answers = 1;
        c.open_session.reply.then_correct = true;
        c.open_session.reply.strays = 1;
    });
    Bytes tag_wrong = correct;
    tag_wrong[16] = 2;
    console.send(open());
    EXPECT_EQ(console.receive(), (Bytes{0xDE, 0xAD, 0xBE, 0xEF, 0x00}));
    EXPECT_EQ(console.receive(), tag_wrong);
    EXPECT_EQ(console.receive(), correct);
    console.send(open());
    EXPECT_EQ(console.receive(), (Bytes{0xDE, 0xAD, 0xBE, 0xEF, 0x00}));
    EXPECT_EQ(console.receive(), correct);
    EXPECT_FALSE(console.receive(200));
}

TEST_F(BmcsimEstablishmentFaults, SilentAndLateRakpAnswers)
{
    ASSERT_EQ(console.exchange(open()).size(), 52u);
    sim->modify([](bmcsim::Config &c) {
        c.rakp2.reply.silent = true;
        c.rakp4.reply.delay_ms = 300;
    });
    EXPECT_TRUE(console.exchange(rakp1(), 300).empty());
    sim->modify([](bmcsim::Config &c) { c.rakp2.reply.silent = false; });
    ASSERT_EQ(console.exchange(rakp1()).size(), 76u);
    auto start = bmcsim::Clock::now();
    Bytes rakp4 = console.exchange(rakp3(), 1000);
    EXPECT_EQ(rakp4.size(), 36u);
    EXPECT_GE(bmcsim::Clock::now() - start, std::chrono::milliseconds(290));
    EXPECT_EQ(sim->stats().count(Kind::Rakp1), 2u);
}

}  // namespace
