// Stand-in for the media library's transcoding tool
// /usr/local/medialibrary/bin/VexHLSAgent, in the one use the daemon makes of
// it: a dry run that says whether the tool can read a file.
//
//   VexHLSAgent -i PATH -type 1|2 -o null.m3u8 -silent
//
// The media are described in ROOT/sim/hls-media.tsv, one file a line,
// tab-separated: appliance path, video codec ("-" for none), audio codec
// ("-" for none). The tool reads the codecs of its table below. Replies, on
// standard output:
//   status 0  the file can be transcoded (its codecs follow)
//   status 9  a codec of the file is outside the table
//   status 2  the file is not described (the tool could not open it)
//   status 1  the call lacks -i or -type
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>

#include "common/standin.h"

namespace {

bool readable(const std::string& codec) {
  static const char* const table[] = {"-",    "h264",  "hevc", "mpeg4", "mpeg2video", "vc1", "vp8",
                                      "vp9",  "aac",   "ac3",  "eac3",  "mp3",        "mp2", "flac",
                                      "opus", "vorbis", "pcm_s16le"};
  for (const char* c : table)
    if (codec == c) return true;
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/usr/local/medialibrary/bin/VexHLSAgent");
  sim::log_call(root, argc, argv);
  std::string input, type;
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], "-i") == 0) input = argv[i + 1];
    if (std::strcmp(argv[i], "-type") == 0) type = argv[i + 1];
  }
  if (input.empty() || (type != "1" && type != "2")) {
    std::printf("<?xml version=\"1.0\"?><root><status>1</status><error>usage</error></root>\n");
    return 1;
  }
  std::istringstream in(sim::read_file(root + "/sim/hls-media.tsv"));
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string path, video, audio;
    if (!std::getline(fields, path, '\t') || path != input) continue;
    std::getline(fields, video, '\t');
    std::getline(fields, audio, '\t');
    if (!readable(video) || !readable(audio)) {
      std::printf("<?xml version=\"1.0\"?><root><status>9</status><error>codec not supported</error></root>\n");
      return 0;
    }
    std::printf("<?xml version=\"1.0\"?><root><status>0</status><video>%s</video><audio>%s</audio></root>\n",
                video.c_str(), audio.c_str());
    return 0;
  }
  std::printf("<?xml version=\"1.0\"?><root><status>2</status><error>cannot open input</error></root>\n");
  return 0;
}
