// The text work behind a Chromecast track: the media server's URL edited by
// its words (MediaItems, Transcode, BD, DVD, CHROMECAST, Captions) and its
// comma parameters, the transcoding tool's verdict, the subtitle files that
// sit beside a video, and the title and thumbnail of a browse reply. The
// decisions that use them are members of CChromecast (chromecastMedia.cpp);
// these pieces hold no state and run no process.
#pragma once

#include <string>

namespace vessord {
namespace cast {

// Replaces the first `from` by `to`; false when there is none.
bool replace_first(std::string& url, const std::string& from, const std::string& to);

// The transcoding words turned into this device kind's profile. The
// position of the first of Transcode, else BD, else DVD is taken once, and
// every later replacement works at that same place, as the media server's
// clients always have. False when the URL holds none of the three.
bool to_device_profile(std::string& url);

// "mime=..." up to the next comma becomes "mime=application/x-mpegurl"; the
// URL stays as it is without such a stretch.
void to_hls_mime(std::string& url);

// The URL of the item's own caption track: its first MediaItems, or else
// its first Transcode, read as Captions, asking for WebVTT.
std::string captions_url(const std::string& url);

// The URL that ends the transcoding job of `hlsUrl`; "" when the URL names
// no job of this device kind.
std::string interrupt_url(const std::string& hlsUrl);

// Every byte but the URL's unreserved ones (letters, digits, - . _ ~) as
// %XX, as curl_escape writes it.
std::string url_escape(const std::string& text);

// The transcoding tool's reply: 0 for status 9 (the tool cannot read the
// file), 1 for everything else, including a reply without root or status.
int codec_verdict(const std::string& reply);

// The machine word of `uname -m` names an Arm processor ("arm", "Arm" or
// "ARM"; aarch64 does not).
bool is_arm_machine(const std::string& machine);

// A position of the command layer as the seconds that a device scrub
// takes: lowered to a multiple of five.
int scrub_seconds(const char* position);

// Whether a directory entry is the subtitle of the media file whose name
// without its extension is `target`: 1 taken, 0 not. `lang` receives the
// language mark (".en") of an entry that is taken by one.
int subtitle_entry_matches(const std::string& entry, const std::string& target, std::string* lang);

// The title of a browse reply as it goes into the play line's quoted
// title: &amp; &lt; &gt; decoded (each one's search ending when it cannot
// step back far enough), double quotes behind a backslash.
std::string device_title(const std::string& text);

// Title and thumbnail of a browse reply: 0 (also for a reply that lacks a
// step down to its item, then both stay empty).
int title_and_thumbnail(const std::string& xml, std::string& thumbnail, std::string& title);

}  // namespace cast
}  // namespace vessord
