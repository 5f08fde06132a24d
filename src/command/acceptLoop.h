// The daemon's main loop: accept, and hand each connection to a thread of
// its own that runs process().
#pragma once

class CPlayerManager;
class CUnixSocketIpc;

// Stack of a connection thread: small, so that thousands of waiting
// connections fit in memory. Nothing on a connection's path recurses over
// the request's depth.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr unsigned long kConnectionStack = 1024UL * 1024UL;
#else
constexpr unsigned long kConnectionStack = 256UL * 1024UL;
#endif

// The word for an errno that accept can report, or null for other numbers.
const char* accept_errno_word(int err);

// Opens the descriptor that the loop keeps in reserve for the moment when
// the process has none left, unless it is open already. A failed accept
// with EMFILE or ENFILE waits for a connection and tries again; only while
// descriptors are still exhausted is that connection taken with the reserve
// and closed, so the loop neither spins nor drops a client it could serve.
void accept_keep_spare();

// Accepts one connection (or reports why not) and starts its thread. The
// main loop calls this for ever; it never fails.
void accept_once(CUnixSocketIpc& ipc, CPlayerManager* manager);

[[noreturn]] void accept_loop(CUnixSocketIpc& ipc, CPlayerManager* manager);
