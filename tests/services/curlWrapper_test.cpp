// The AirPlay HTTP client against the simulated device on loopback: the bytes
// each request puts on the wire, and what it reads back from the reply.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "airplay/airplayDevice.h"
#include "services/curlWrapper.h"

using vessord::CurlWrapper;
using vessord::Response;

namespace {

class CurlWrapperTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(device.start());
    ASSERT_EQ(client.setIp("127.0.0.1"), 0);
    ASSERT_EQ(client.setPort(device.port()), 0);
  }

  sim::AirplayRequest only() {
    auto reqs = device.requests();
    EXPECT_EQ(reqs.size(), 1U);
    return reqs.empty() ? sim::AirplayRequest() : reqs.back();
  }

  sim::AirplayDevice device;
  CurlWrapper client;
};

}  // namespace

TEST_F(CurlWrapperTest, PlayPostsTheContentLocationBodyAsItStands) {
  // A URL with an ampersand and a blank goes in untouched: the caller escapes.
  std::string url = "http://10.0.0.2:8200/MediaItems/12.mkv?sid=3&tid=a b";
  Response r;
  EXPECT_EQ(client.airplayPostPlay(r, url), 0);
  EXPECT_EQ(r.m_response, 200);
  auto req = only();
  EXPECT_EQ(req.method, "POST");
  EXPECT_EQ(req.path, "/play");
  EXPECT_EQ(req.body, "Content-Location: " + url + "\r\nStart-Position: 0.0\r\n");
  EXPECT_EQ(req.headers["Content-Length"], std::to_string(req.body.size()));
  EXPECT_EQ(device.currentUrl(), url);
}

TEST_F(CurlWrapperTest, RateScrubAndStopCarryTheirValuesInTheQuery) {
  Response r;
  EXPECT_EQ(client.airplayPostRate(r, 1.0F), 0);
  EXPECT_EQ(client.airplayPostRate(r, 0.0F), 0);
  EXPECT_EQ(client.airplayPostScrub(r, 12.5F), 0);
  EXPECT_EQ(client.airplayPostScrub(r, 90.0F), 0);
  EXPECT_EQ(client.airplayPostStop(r), 0);
  EXPECT_EQ(client.airplayPostGetProperty(r), 0);
  auto reqs = device.requests();
  ASSERT_EQ(reqs.size(), 6U);
  EXPECT_EQ(reqs[0].path, "/rate?value=1");
  EXPECT_EQ(reqs[1].path, "/rate?value=0");
  EXPECT_EQ(reqs[2].path, "/scrub?position=12.5");
  EXPECT_EQ(reqs[3].path, "/scrub?position=90");
  EXPECT_EQ(reqs[4].path, "/stop");
  EXPECT_EQ(reqs[5].path, "/getProperty?playbackAccessLog");
  for (const auto& req : reqs) {
    EXPECT_EQ(req.method, "POST") << req.path;
    EXPECT_TRUE(req.body.empty()) << req.path;
  }
}

TEST_F(CurlWrapperTest, GetRequestsUseGetOnTheirPaths) {
  Response r;
  EXPECT_EQ(client.airplayGetScrub(r), 0);
  EXPECT_EQ(client.airplayGetServerInfo(r), 0);
  EXPECT_EQ(client.airplayGetSlideshowFeature(r), 0);
  EXPECT_EQ(client.airplayGetPlaybackInfo(r), 0);
  auto reqs = device.requests();
  ASSERT_EQ(reqs.size(), 4U);
  const char* paths[] = {"/scrub", "/server-info", "/slideshow-features", "/playback-info"};
  for (size_t i = 0; i < 4; i++) {
    EXPECT_EQ(reqs[i].method, "GET");
    EXPECT_EQ(reqs[i].path, paths[i]);
  }
}

TEST_F(CurlWrapperTest, OutOfRangeValuesSendNothing) {
  Response r;
  EXPECT_EQ(client.airplayPostRate(r, 1.5F), -1);
  EXPECT_EQ(client.airplayPostRate(r, -0.1F), -1);
  EXPECT_EQ(client.airplayPostScrub(r, -1.0F), -1);
  EXPECT_TRUE(device.requests().empty());
}

TEST_F(CurlWrapperTest, ScrubReplyGivesDurationAndPositionOfClosedLinesOnly) {
  Response r;
  device.setScrubReply("duration: 120.500000\nposition: 33.250000\n");
  ASSERT_EQ(client.airplayGetScrub(r), 0);
  EXPECT_FLOAT_EQ(r.m_duration, 120.5F);
  EXPECT_FLOAT_EQ(r.m_position, 33.25F);

  // Without the last line feed the position is not read.
  Response partial;
  partial.m_position = -7;
  device.setScrubReply("duration: 10\nposition: 4");
  ASSERT_EQ(client.airplayGetScrub(partial), 0);
  EXPECT_FLOAT_EQ(partial.m_duration, 10);
  EXPECT_FLOAT_EQ(partial.m_position, -7);

  // Lines of other shapes pass; "position:" needs its blank.
  Response other;
  other.m_position = -7;
  device.setScrubReply("x-duration: 5\nposition:9\nduration: 8\n");
  ASSERT_EQ(client.airplayGetScrub(other), 0);
  EXPECT_FLOAT_EQ(other.m_duration, 8);
  EXPECT_FLOAT_EQ(other.m_position, -7);
}

TEST_F(CurlWrapperTest, PositionFollowsPlaybackOnTheDevice) {
  Response r;
  device.setDuration("http://h/a.mp4", 300);
  ASSERT_EQ(client.airplayPostPlay(r, "http://h/a.mp4"), 0);
  ASSERT_EQ(client.airplayPostScrub(r, 100.0F), 0);
  Response pos;
  ASSERT_EQ(client.airplayGetScrub(pos), 0);
  EXPECT_FLOAT_EQ(pos.m_duration, 300);
  EXPECT_GE(pos.m_position, 100);
  EXPECT_LT(pos.m_position, 300);
}

TEST_F(CurlWrapperTest, AnHttpErrorIsNoFailureAndAnEmptyBodyKeepsTheNumbers) {
  Response r;
  r.m_duration = 11;
  r.m_position = 22;
  ASSERT_EQ(client.airplayPostRate(r, 1.0F), 0);
  EXPECT_EQ(r.m_response, 200);
  EXPECT_FLOAT_EQ(r.m_duration, 11);
  EXPECT_FLOAT_EQ(r.m_position, 22);

  device.setRefuse(500);
  Response refused;
  EXPECT_EQ(client.airplayPostPlay(refused, "http://h/b.mp4"), 0);
  EXPECT_EQ(refused.m_response, 500);
  EXPECT_EQ(client.airplayGetScrub(refused), 0);
  EXPECT_EQ(refused.m_response, 500);
}

TEST_F(CurlWrapperTest, AVanishedDeviceFailsTheRequest) {
  device.stop();
  Response r;
  EXPECT_EQ(client.airplayPostStop(r), -1);
  EXPECT_EQ(client.airplayGetScrub(r), -1);
  EXPECT_TRUE(r.m_errMsg.empty());
}

TEST_F(CurlWrapperTest, PhotoUploadsTheFilesBytes) {
  char path[] = "/tmp/vessord-photo-XXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  std::string bytes("\xff\xd8\xff\xe0JFIF\0binary\0tail", 19);
  ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(fd);
  Response r;
  EXPECT_EQ(client.airplayPutPhoto(r, path), 0);
  EXPECT_EQ(r.m_response, 200);
  auto req = only();
  EXPECT_EQ(req.method, "PUT");
  EXPECT_EQ(req.path, "/photo");
  EXPECT_EQ(device.lastPhoto(), bytes);
  // A second request on the same handle is no upload any more.
  EXPECT_EQ(client.airplayGetScrub(r), 0);
  EXPECT_EQ(device.requests().back().method, "GET");
  unlink(path);

  device.clearRequests();
  EXPECT_EQ(client.airplayPutPhoto(r, path), -1);
  EXPECT_TRUE(device.requests().empty());
}

TEST(CurlWrapperSetup, RequestsNeedAnAddressAndAPort) {
  CurlWrapper c;
  EXPECT_EQ(c.getPort(), 7000);
  EXPECT_EQ(c.check(), 1);  // no address yet
  Response r;
  EXPECT_EQ(c.airplayGetScrub(r), -1);
  EXPECT_EQ(c.setIp("127.0.0.1"), 0);
  EXPECT_EQ(c.check(), 0);
  EXPECT_EQ(c.setPort(-1), 1);
  EXPECT_EQ(c.getPort(), 7000);
  EXPECT_EQ(c.setPort(0), 0);
  EXPECT_EQ(c.getPort(), 0);
  EXPECT_EQ(c.prepareUrl(), 1);
  EXPECT_EQ(c.check(), 1);
  EXPECT_EQ(c.airplayPostStop(r), -1);
  EXPECT_EQ(c.airplayPostRate(r, 0.5F), -1);
}

TEST(CurlWrapperSetup, NoSlashBetweenPortAndPath) {
  sim::AirplayDevice device;
  ASSERT_TRUE(device.start());
  CurlWrapper c;
  c.setPort(device.port());
  c.setIp("127.0.0.1");
  Response r;
  ASSERT_EQ(c.airplayPostStop(r), 0);
  ASSERT_EQ(device.requests().size(), 1U);
  EXPECT_EQ(device.requests()[0].path, "/stop");
}

TEST(CurlWrapperText, CallbackTakesTextUpToTheFirstNulButSwallowsTheChunk) {
  std::string out;
  char chunk[] = {'a', 'b', '\0', 'c', 'd'};
  EXPECT_EQ(CurlWrapper::curlCallback(chunk, 1, sizeof chunk, &out), sizeof chunk);
  EXPECT_EQ(out, "ab");
  char more[] = {'x', 'y', 'z', 'w'};
  EXPECT_EQ(CurlWrapper::curlCallback(more, 2, 2, &out), 4U);
  EXPECT_EQ(out, "abxyzw");
  EXPECT_EQ(CurlWrapper::curlCallback(nullptr, 3, 2, &out), 6U);
  EXPECT_EQ(out, "abxyzw");
}

TEST(CurlWrapperText, EscapeCoversTheWholeText) {
  CurlWrapper c;
  std::string text = "a b&c/d?e=#f";
  EXPECT_EQ(c.urlEscape(text), "a%20b%26c%2Fd%3Fe%3D%23f");
  std::string plain = "Abc-1.2_3~";
  EXPECT_EQ(c.urlEscape(plain), plain);
}

TEST(CurlWrapperText, HexDumpShowsOffsetsBytesAndPrintables) {
  char* buf = nullptr;
  size_t len = 0;
  FILE* mem = open_memstream(&buf, &len);
  ASSERT_NE(mem, nullptr);
  unsigned char data[18] = {'H', 'i', 0x00, 0x7f, 0x80, '\n'};
  for (int i = 6; i < 18; i++) data[i] = static_cast<unsigned char>('a' + i);
  CurlWrapper::curlDebugDumpHex("=> Send data", mem, data, sizeof data);
  fclose(mem);
  std::string text(buf, len);
  free(buf);
  EXPECT_EQ(text,
            "=> Send data, 0000000018 bytes (0x00000012)\n"
            "0000: 48 69 00 7f 80 0a 67 68 69 6a 6b 6c 6d 6e 6f 70 Hi.\x7f..ghijklmnop\n"
            "0010: 71 72                                           qr\n");
}
