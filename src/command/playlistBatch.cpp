// The parameter-file commands, the duplicate that replays them, and the
// agent's object id of a file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command/playlistHandlers.h"
#include "command/playlistParams.h"
#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/rootPath.h"
#include "foundation/shellRunner.h"
#include "foundation/sysUtil.h"
#include "manager/playerManager.h"
#include "player/player.h"

using namespace vessord::playlistcmd;

namespace {

// The text of a child of the file's top element, or null.
const char* child_text(const XMLNode& top, const char* name) { return top.getChildNode(name).getText(); }

// Owns a descriptor.
class FdOwner {
 public:
  explicit FdOwner(int fd) : m_fd(fd) {}
  ~FdOwner() {
    if (m_fd >= 0) ::close(m_fd);
  }
  FdOwner(const FdOwner&) = delete;
  FdOwner& operator=(const FdOwner&) = delete;
  int get() const { return m_fd; }

 private:
  int m_fd;
};

// The scratch file lies in a directory anyone can write to and the daemon
// runs as root: whatever is found under the name (a planted link, a file
// of someone else's) is unlinked, never followed, and only a file this call
// made itself is written. -1 when no such file could be made.
int open_fresh_file(const std::string& path) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd >= 0) return fd;
    if (errno != EEXIST) return -1;
    // unlink removes a link itself, not what it points to.
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) return -1;
  }
  return -1;
}

bool write_all(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// The duplicate's file says "vidoe" for a video, a word the batch path
// does not know: copied videos come out as media type 4.
const char* dup_media_word(int type) {
  switch (type) {
    case MEDIA_AUDIO: return "audio";
    case MEDIA_PHOTO: return "photo";
    case MEDIA_VIDEO: return "vidoe";
    default: return nullptr;
  }
}

const char* dup_content_word(int type) {
  switch (type) {
    case CONTENT_FILE: return "file";
    case CONTENT_OBJECT: return "object";
    case CONTENT_DBID: return "dbID";
    default: return nullptr;
  }
}

// The title and application type are markup-escaped, so that they read
// back exactly and cannot open elements that name another playlist.
std::string escaped(const char* text) {
  std::string out;
  for (const char* p = text; *p; ++p) {
    switch (*p) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      default: out += *p;
    }
  }
  return out;
}

// The add file of `rows`, contents as they stand: unescaped markup in a
// content can change what the copy holds, never anything outside it.
std::string dup_file_text(const std::vector<playlistElm_s>& rows, const char* destTitle, const char* appType) {
  std::string text = "<root>\n";
  if (!rows.empty()) {
    text += "\t<appType>" + escaped(appType) + "</appType>\n";
    text += "\t<playlist playlistType=\"dup\">" + escaped(destTitle) + "</playlist>\n";
  }
  for (const playlistElm_s& row : rows) {
    // Two pieces; an unknown value leaves out its word and the rest of its
    // piece, so the line no longer parses as an item.
    text += "\t<item mediaType=\"";
    if (const char* word = dup_media_word(row.mediaType)) {
      text += word;
      text += "\" ";
    }
    text += "contentType=\"";
    if (const char* word = dup_content_word(row.contentType)) {
      text += word;
      text += "\">";
      text += row.content;
      text += "</item>";
    }
    text += "\n";
  }
  text += "</root>\n";
  return text;
}

}  // namespace

int batch_add_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* path = param_text(root, "filePath");
  if (!path) return -3;
  const char* startText = param_text(root, "start");
  int start = startText ? to_int(startText) : 0;
  // A negative start would shift every row and put the items before order
  // 0, leaving the playlist's orders with a hole: it appends instead.
  if (start < 0) start = 0;

  struct stat st;
  if (::lstat(path, &st) != 0) {
    VLOG(LOG_COLOR_FAIL, "Can't open %s\n", path);
    return -15;
  }
  XMLNode doc = XMLNode::parseFile(path, nullptr);
  if (doc.isEmpty()) {
    VLOG(LOG_COLOR_FAIL, "XML file format error\n");
    return -16;
  }
  XMLNode titleNode = doc.getChildNode("playlist");
  const char* title = titleNode.getText();
  const char* appType = child_text(doc, "appType");
  if (!title || !appType) return -12;
  const char* owner = child_text(doc, "owner");
  const char* tag = child_text(doc, "tag");

  CSqlitePlaylist& db = store();
  int id = db.getPlaylistID(title, appType);
  if (id < 1) {
    auto type = static_cast<mediaType_e>(media_type_from_word(titleNode.getAttribute("playlistType")));
    db.addPlaylist(title, type, appType, owner, tag);
    id = db.getPlaylistID(title, appType);
    if (id < 0) return -12;
  }

  int count = doc.nChildNode("item");
  int result = 0;
  // The size is read and the room at `start` made inside the batch's
  // transaction: two batches into one playlist never take the same orders,
  // and a crash in the loop leaves neither the shift nor any item.
  db.transBegin();
  int size = db.transSizeOfPlaylist(id);
  if (size < 0) size = 0;
  int base = size;
  if (start != 0 && size > start && db.transAdjustPlayOrder(id, start, count) == 0) base = start;
  // The walking form: a lookup by index would start from the top each time.
  int at = 0;
  for (int i = 0; i < count; ++i) {
    XMLNode item = doc.getChildNode("item", &at);
    const char* text = item.getText();
    const char* mediaWord = item.getAttribute("mediaType");
    const char* contentWord = item.getAttribute("contentType");
    auto media = MEDIA_UNKNOWN;
    auto content = CONTENT_UNKNOWN;
    if (text && mediaWord && contentWord) {
      media = static_cast<mediaType_e>(media_type_from_word(mediaWord));
      content = static_cast<contentType_e>(content_type_from_word(contentWord));
    }
    if (db.transAddElmInPlaylist(id, media, content, text ? text : "", base + i) != 0) {
      VLOG(LOG_COLOR_FAIL, "g_playlistDB.addElmInPlaylist() ... fail\n");
      result = -12;
      break;
    }
  }
  db.transEnd();
  manager.updateAssociatePlayQueue(id);

  // Removing a link removes the link, never its target.
  if (::remove(path) != 0) VLOG(LOG_COLOR_FAIL, "remove %s failed\n", path);
  if (result != 0) return result;
  return success(reply);
}

int batch_del_playlist(CPlayerManager&, XMLNode& root, XMLNode& reply) {
  const char* path = param_text(root, "filePath");
  if (!path) return -3;
  struct stat st;
  if (::lstat(path, &st) != 0) {
    VLOG(LOG_COLOR_FAIL, "Can't open %s\n", path);
    return -15;
  }
  XMLNode doc = XMLNode::parseFile(path, nullptr);
  const char* title = doc.isEmpty() ? nullptr : child_text(doc, "playlist");
  const char* appType = doc.isEmpty() ? nullptr : child_text(doc, "appType");
  if (!title || !appType) {
    VLOG(LOG_COLOR_FAIL, "XML file format error\n");
    return -16;
  }
  CSqlitePlaylist& db = store();
  if (db.getPlaylistID(title, appType) < 1) {
    VLOG(LOG_COLOR_FAIL, "The %s is not exist\n", title);
    return -14;
  }
  int count = doc.nChildNode("uuid");
  int at = 0;
  for (int i = 0; i < count; ++i) {
    const char* text = doc.getChildNode("uuid", &at).getText();
    if (!text) continue;
    auto uuid = static_cast<uint64_t>(std::strtoll(text, nullptr, 10));
    if (db.delElmInPlaylist(title, appType, uuid) != 0) {
      VLOG(LOG_COLOR_FAIL, "g_playlistDB.delElmInPlaylist() ... fail\n");
      return -12;
    }
  }
  return success(reply);
}

int duplicate_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* src = param_text(root, "playlist_src");
  const char* dest = param_text(root, "playlist_dest");
  const char* appType = param_text(root, "appType");
  if (!src || !dest || !appType) return -3;
  CSqlitePlaylist& db = store();
  int id = db.getPlaylistID(src, appType);
  if (id < 0) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.getPlaylistID() ... fial\n");
    return -10;
  }
  std::vector<playlistElm_s> rows;
  if (db.getPlaylistElmsByPage(rows, id, 0, 0) != 0) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.getPlaylistElmsByPage() ... fial\n");
    return -11;
  }
  // From here on the answer is success, whatever happens.
  success(reply);
  const char* destAppType = param_text(root, "destAppType");
  std::string text = dup_file_text(rows, dest, destAppType ? destAppType : appType);

  const std::string path = vessord::root_path(kDupPlaylistFile);
  {
    FdOwner fd(open_fresh_file(path));
    if (fd.get() < 0) return 0;
    write_all(fd.get(), text);
  }

  XMLNode params = XMLNode::createXMLTopNode("root");
  XMLNode list = ParamXmlWrapper::add_child_node(params, "paramList", nullptr);
  ParamXmlWrapper::add_child_node(list, "playlist", dest);
  ParamXmlWrapper::add_child_node(list, "appType", appType);
  ParamXmlWrapper::add_child_node(list, "filePath", path.c_str());
  XMLNode scratch;
  del_playlist(manager, params, scratch);
  XMLNode scratch2;
  batch_add_playlist(manager, params, scratch2);

  // The batch normally removed it already, so this line shows up after
  // every duplicate that worked.
  if (::remove(path.c_str()) != 0) VLOG(LOG_COLOR_FAIL, "remove %s failed\n", path.c_str());
  return 0;
}

int get_upnp_object_id(XMLNode& root, XMLNode& reply) {
  XMLNode pathNode;
  if (ParamXmlWrapper::get_param_node_with_check_text(root, pathNode, "filePath") != 0) return 0;
  std::string real;
  CPlayer::getRealFilePath(pathNode.getText(), real);
  if (!is_file_exist(real.c_str())) {
    VLOG(LOG_COLOR_FAIL, "%s not exist\n", real.c_str());
    return -13;
  }
  // Kept for its effect on short paths only; the command takes the
  // resolved path as it stands.
  char converted[8] = {0};
  convert_utf8_linux_filepath(real.c_str(), converted, sizeof converted);

  // Unquoted on the line: a blank splits the path into two words, and a
  // path that would make the shell do more than that never runs.
  vessord::ShellLine line("/usr/bin/brelctl -c getObjectID --filePath %s", std::vector<std::string>{real},
                         vessord::BareWords::SPLIT);
  std::string output;
  if (line.display().size() >= 4096 || execute_external_cmd(line, output, 10) != 0) return -1;
  XMLNode doc = XMLNode::parseString(output.c_str(), "root");
  if (doc.isEmpty()) return -6;
  const char* status = doc.getChildNode("status").getText();
  if (!status) return -17;
  if (std::strcmp(status, "success") != 0) return -13;
  const char* objectID = doc.getChildNode("objectID").getText();
  if (!objectID) return -9;
  success(reply);
  ParamXmlWrapper::add_child_node(reply, "objectID", objectID);
  return 0;
}
