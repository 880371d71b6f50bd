// Packet cutting, reply reassembly and the consistency checks of the transmission channel,
// against the scripted firmware.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "device/channel.hpp"
#include "device/ops.hpp"
#include "tests/device/fake_firmware.hpp"

namespace
{

class ChannelTest : public ::testing::Test
{
  protected:
    void SetUp() override { fake_firmware().reset(); }
    FakeFirmware &fw() { return fake_firmware(); }

    // Sends `in_len` patterned bytes with a reply capacity of `cap` into out_.
    int send(uint32_t in_len, uint32_t cap, uint32_t logic_id = 3)
    {
        in_.resize(in_len);
        for (uint32_t i = 0; i < in_len; ++i)
            in_[i] = static_cast<uint8_t>(i * 7 + i / 2000);
        out_.assign(cap + kGuard, 0xEE);
        size_word_ = cap;
        para_ = {0x55,        in_len ? in_.data() : nullptr,
                 in_len,      cap ? out_.data() : nullptr,
                 &size_word_, -1,
                 77};
        return kopa_network_transmission_channel(logic_id, &para_);
    }

    // Answers pieces from a list, one per library call.
    void script(std::vector<ds_rsp> pieces)
    {
        fw().answer = [pieces, n = size_t{0}](const ds_req &, ds_rsp &rsp, unsigned &) mutable {
            rsp = n < pieces.size() ? pieces[n] : fake_piece(0, 0, 0);
            ++n;
            return 0;
        };
    }

    static constexpr uint32_t kGuard = 64;
    std::vector<uint8_t> in_, out_;
    uint32_t size_word_ = 0;
    network_channel_para para_{};
};

TEST_F(ChannelTest, TlsSizedRequestTravelsAsThirtyPackets)
{
    ASSERT_EQ(send(TLS_CFG_SIZE, 0), 0);
    ASSERT_EQ(fw().requests.size(), 30u);
    uint32_t offset = 0;
    for (size_t i = 0; i < 30; ++i) {
        const ds_req &r = fw().requests[i];
        uint32_t want_frag =
            i == 0 ? KOPA_FRAG_FIRST : (i == 29 ? KOPA_FRAG_LAST : KOPA_FRAG_MIDDLE);
        uint32_t want_copy = i == 29 ? 40u : 2000u;
        EXPECT_EQ(r.frag, want_frag) << "packet " << i;
        EXPECT_EQ(r.copy_size, want_copy) << "packet " << i;
        EXPECT_EQ(memcmp(r.info, in_.data() + offset, want_copy), 0) << "packet " << i;
        EXPECT_EQ(r.logic_id, 3u);
        EXPECT_EQ(r.opcode, 0x55u);
        EXPECT_EQ(r.size_in, TLS_CFG_SIZE);
        EXPECT_EQ(r.direction, KOPA_DIR_SEND);
        EXPECT_EQ(r.tgid, kFakeTgid);
        EXPECT_EQ(r.client_pid, 77u);
        offset += want_copy;
    }
    EXPECT_EQ(para_.result, 0);
}

TEST_F(ChannelTest, PacketBoundaryAtTwoThousandBytes)
{
    struct Case {
        uint32_t len;
        std::vector<std::pair<uint32_t, uint32_t>> packets; // frag, copy_size
    };
    const Case cases[] = {
        {1, {{0, 1}}},
        {2000, {{0, 2000}}},
        {2001, {{1, 2000}, {3, 1}}},
        {4000, {{1, 2000}, {3, 2000}}},
    };
    for (const Case &c : cases) {
        fw().reset();
        ASSERT_EQ(send(c.len, 0), 0) << c.len;
        ASSERT_EQ(fw().requests.size(), c.packets.size()) << c.len;
        for (size_t i = 0; i < c.packets.size(); ++i) {
            EXPECT_EQ(fw().requests[i].frag, c.packets[i].first) << c.len << " packet " << i;
            EXPECT_EQ(fw().requests[i].copy_size, c.packets[i].second) << c.len << " packet " << i;
        }
    }
}

TEST_F(ChannelTest, RejectsReplyFragInconsistentWithCapacity)
{
    struct Case {
        uint32_t cap;
        uint32_t frag;
    };
    const Case cases[] = {{4000, KOPA_FRAG_FIRST},
                          {2000, KOPA_FRAG_MIDDLE},
                          {100, KOPA_FRAG_LAST},
                          {100, KOPA_FRAG_FIRST}};
    for (const Case &c : cases) {
        fw().reset();
        script({fake_piece(0, c.frag, 10, 0xAB)});
        EXPECT_EQ(send(0, c.cap), -22) << c.cap << "/" << c.frag;
        EXPECT_EQ(para_.result, 0);
        EXPECT_EQ(out_[0], 0xEE) << "nothing copied";
        EXPECT_TRUE(fw().logged("error rsp from rdfx"));
    }
}

TEST_F(ChannelTest, RefusalOnFirstPacketStopsSendAndSkipsReceive)
{
    script({fake_piece(7, 0, 20, 0xAB)});
    EXPECT_EQ(send(TLS_CFG_SIZE, 256), 0);
    EXPECT_EQ(fw().requests.size(), 1u);
    EXPECT_EQ(para_.result, 7);
    EXPECT_EQ(size_word_, 256u);
    EXPECT_EQ(out_[0], 0xEE);
}

TEST_F(ChannelTest, RejectsBadArgumentsBeforeSending)
{
    EXPECT_EQ(send(10, 10, 16), -22);
    EXPECT_EQ(send(10, 10, 0xFFFFFFFFu), -22);
    EXPECT_EQ(kopa_network_transmission_channel(0, nullptr), -22);

    uint8_t buf[4];
    uint32_t zero = 0, four = 4;
    const network_channel_para bad[] = {
        {1, nullptr, 4, buf, &four, -1, 0}, // payload length without payload
        {1, buf, 0, buf, &four, -1, 0},     // payload without length
        {1, nullptr, 0, nullptr, nullptr, -1, 0}, {1, nullptr, 0, nullptr, &four, -1, 0},
        {1, nullptr, 0, buf, nullptr, -1, 0},     {1, nullptr, 0, buf, &zero, -1, 0},
    };
    for (network_channel_para p : bad)
        EXPECT_EQ(kopa_network_transmission_channel(0, &p), -22);
    EXPECT_TRUE(fw().requests.empty());
}

TEST_F(ChannelTest, SizeWordEndsAsCapacityPlusReceived)
{
    script({fake_piece(0, 0, 100, 0x5A)});
    ASSERT_EQ(send(0, 256), 0);
    EXPECT_EQ(size_word_, 356u);
    EXPECT_EQ(out_[99], 0x5A);
    EXPECT_EQ(out_[100], 0xEE);
}

TEST_F(ChannelTest, ReassemblesMultiPieceReplyWithinCapacity)
{
    script({fake_piece(0, 2, 2000, 'a'), fake_piece(0, 2, 2000, 'b'), fake_piece(0, 3, 1000, 'c')});
    ASSERT_EQ(send(12, 5000), 0);
    ASSERT_EQ(fw().requests.size(), 3u);
    EXPECT_EQ(fw().requests[1].direction, KOPA_DIR_FETCH);
    EXPECT_EQ(fw().requests[1].frag, 2u); // acknowledges the piece received
    EXPECT_EQ(fw().requests[2].frag, 2u);
    EXPECT_EQ(out_[0], 'a');
    EXPECT_EQ(out_[2000], 'b');
    EXPECT_EQ(out_[4999], 'c');
    EXPECT_EQ(out_[5000], 0xEE);
    EXPECT_EQ(size_word_, 10000u);

    // More data than room: the piece is refused, nothing is written past the capacity.
    fw().reset();
    script({fake_piece(0, 2, 2000, 'a'), fake_piece(0, 3, 2000, 'b')});
    EXPECT_NE(send(0, 3000), 0);
    EXPECT_EQ(out_[3000], 0xEE);

    // Capacity used up while the firmware still announces middle pieces.
    fw().reset();
    script({fake_piece(0, 2, 2000, 'a'), fake_piece(0, 2, 2000, 'b')});
    EXPECT_EQ(send(0, 4000), -22);
    EXPECT_EQ(fw().requests.size(), 2u);

    // A refusal while fetching is the firmware's verdict, not a channel failure.
    fw().reset();
    script({fake_piece(0, 2, 2000, 'a'), fake_piece(-5, 2, 10, 'b')});
    EXPECT_EQ(send(0, 4000), 0);
    EXPECT_EQ(para_.result, -5);
}

TEST_F(ChannelTest, LibraryFailureIsInvalidArgument)
{
    fw().answer = [](const ds_req &, ds_rsp &, unsigned &) { return -19; };
    EXPECT_EQ(send(10, 0), -22);
    fw().answer = [](const ds_req &, ds_rsp &, unsigned &len) {
        len = 100;
        return 0;
    };
    EXPECT_EQ(send(10, 0), -22);
    EXPECT_TRUE(fw().logged("kopa get network info failed ret"));
}

TEST_F(ChannelTest, PermissionRefusalIsPrintedAndReturned)
{
    script({fake_piece(-13, 0, 0)});
    uint32_t duplex = 0;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(kopa_get_eth_duplex(0, &duplex), -13);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "permission denied: pls check this cmd run permission.\n");
}

} // namespace
