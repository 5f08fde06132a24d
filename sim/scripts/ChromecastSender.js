// Stand-in for the Chromecast sender child: run by the real node as
//   node ROOT/usr/local/medialibrary/bin/nodejs/ChromecastSender.js IP
// it reads one JSON command a line on its standard input and answers each
// with one XML document in one write on its standard output, driving a
// simulated device whose position follows the wall clock.
//
// What a test can see and steer, all under ROOT/sim/chromecast/:
//   sessions.log     "PID IP" for every start
//   PID.in           every byte received, as received
//   media            "URL SECONDS" lines: a loaded URL's duration (else 600)
//   TAG.lost         the device is lost: every command is answered with
//                    status -1, and the stand-in leaves after that answer
//   TAG.fault        "CMD ACTION [ARG]" lines; CMD may be *:
//                      die             leave without an answer
//                      silent          no answer, keep reading
//                      late MS         answer after MS milliseconds
//                      garbage         answer a text that is no document
//                      nostatus        answer a document without status
//                      notext          answer elements without text
//                      long            answer 2000 bytes
//   TAG.stubborn     the stand-in does not leave when its input ends
// TAG is the IP with every character but letters, digits, '.', '_' and '-'
// made '_'. The start also goes to ROOT/sim/calls.log like any stand-in's.
'use strict';

const fs = require('fs');
const path = require('path');

const root = path.resolve(__dirname, '../../../../..');
const ip = process.argv[2] === undefined ? '' : process.argv[2];
const dir = path.join(root, 'sim', 'chromecast');
const tag = ip.replace(/[^A-Za-z0-9._-]/g, '_') || '_';
fs.mkdirSync(dir, { recursive: true });
const inputLog = path.join(dir, `${process.pid}.in`);
fs.writeFileSync(inputLog, '');
fs.appendFileSync(path.join(dir, 'sessions.log'), `${process.pid} ${ip}\n`);

function shellWord(w) {
  return /^[A-Za-z0-9_\/.:=,+@%-]+$/.test(w) ? w : `'${w.replace(/'/g, "'\\''")}'`;
}
const script = process.argv[1].startsWith(root + '/') ? process.argv[1].slice(root.length) : process.argv[1];
fs.appendFileSync(path.join(root, 'sim', 'calls.log'),
  [process.argv0, script, ...process.argv.slice(2)].map(shellWord).join(' ') + '\n');

function sleep(ms) {
  Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, ms);
}

function readText(file) {
  try { return fs.readFileSync(file, 'utf8'); } catch (e) { return null; }
}

function durationOf(url) {
  const text = readText(path.join(dir, 'media')) || '';
  for (const line of text.split('\n')) {
    const i = line.lastIndexOf(' ');
    if (i > 0 && line.slice(0, i) === url) return Number(line.slice(i + 1)) || 0;
  }
  return 600;
}

// The action of the fault file for `cmd`, as [action, arg], or null.
function faultFor(cmd) {
  const text = readText(path.join(dir, `${tag}.fault`));
  if (!text) return null;
  for (const line of text.split('\n')) {
    const w = line.trim().split(/\s+/);
    if (w.length >= 2 && (w[0] === cmd || w[0] === '*')) return [w[1], w[2]];
  }
  return null;
}

function xmlText(v) {
  return String(v).replace(/&/g, '&amp;').replace(/</g, '&lt;').replace(/>/g, '&gt;');
}

// The simulated device of this session.
const dev = { launched: false, url: '', title: '', duration: 0, state: 'IDLE', base: 0, since: 0,
  volume: 1, mute: 0 };

// Moves the play position on by the wall clock; the end of the media makes
// the device idle at the duration.
function settle() {
  if (dev.state !== 'PLAYING') return;
  const now = Date.now();
  dev.base += (now - dev.since) / 1000;
  dev.since = now;
  if (dev.base >= dev.duration) {
    dev.base = dev.duration;
    dev.state = 'IDLE';
  }
}

function doc(fields) {
  let out = '<?xml version="1.0"?><root>';
  for (const [k, v] of Object.entries(fields)) out += `<${k}>${xmlText(v)}</${k}>`;
  return out + '</root>';
}

function playback(extra) {
  settle();
  const f = { status: 0, state: dev.state };
  if (dev.url) {
    f.duration = dev.duration;
    f.position = dev.base.toFixed(3);
  }
  return doc(Object.assign(f, extra || {}));
}

function refuse(error) {
  return doc({ status: 1, error });
}

function needMedia() {
  if (!dev.launched) return refuse('receiver not launched');
  if (!dev.url) return refuse('no media loaded');
  return null;
}

function answer(c) {
  switch (c.cmd) {
    case 'LAUNCH':
      dev.launched = true;
      return doc({ status: 0, state: dev.state });
    case 'LOAD': {
      if (!dev.launched) return refuse('receiver not launched');
      if (typeof c.url !== 'string' || c.url === '') return refuse('no url');
      dev.url = c.url;
      dev.title = typeof c.title === 'string' ? c.title : '';
      dev.duration = durationOf(c.url);
      dev.base = 0;
      dev.since = Date.now();
      dev.state = 'PLAYING';
      return playback();
    }
    case 'PLAY': {
      const no = needMedia();
      if (no) return no;
      settle();
      if (dev.state === 'PAUSED' || (dev.state === 'IDLE' && dev.base < dev.duration)) {
        dev.state = 'PLAYING';
        dev.since = Date.now();
      }
      return playback();
    }
    case 'PAUSE': {
      const no = needMedia();
      if (no) return no;
      settle();
      if (dev.state === 'PLAYING') dev.state = 'PAUSED';
      return playback();
    }
    case 'STOP': {
      const no = needMedia();
      if (no) return no;
      dev.url = '';
      dev.state = 'IDLE';
      dev.base = 0;
      return doc({ status: 0, state: dev.state });
    }
    case 'SEEK': {
      const no = needMedia();
      if (no) return no;
      const t = Number(c.seektime);
      if (!Number.isFinite(t) || t < 0) return refuse('bad seek time');
      settle();
      dev.base = Math.min(t, dev.duration);
      dev.since = Date.now();
      return playback();
    }
    case 'STATUS':
      if (!dev.launched) return refuse('receiver not launched');
      return playback();
    case 'GET_VOLUME':
      return doc({ status: 0, volume: dev.volume });
    case 'SET_VOLUME': {
      const v = Number(c.volume);
      if (!Number.isFinite(v)) return refuse('bad volume');
      dev.volume = Math.min(1, Math.max(0, v));
      return doc({ status: 0, volume: dev.volume });
    }
    case 'GET_MUTE':
      return doc({ status: 0, mute: dev.mute });
    case 'SET_MUTE':
      if (c.mute !== 'true' && c.mute !== 'false') return refuse('bad mute');
      dev.mute = c.mute === 'true' ? 1 : 0;
      return doc({ status: 0, mute: dev.mute });
    case 'CLOSE':
      return doc({ status: 0, state: 'CLOSED' });
    default:
      return refuse('unknown command');
  }
}

// One write; a reader that has gone ends the session quietly.
function send(text) {
  try {
    fs.writeSync(1, text);
  } catch (e) {
    if (e.code === 'EPIPE') process.exit(0);
    throw e;
  }
}

// Answers one line; false when the stand-in is to leave.
function handle(line) {
  let c = null;
  try { c = JSON.parse(line); } catch (e) { c = null; }
  const cmd = c && typeof c.cmd === 'string' ? c.cmd : '';
  if (fs.existsSync(path.join(dir, `${tag}.lost`))) {
    send(doc({ status: -1, error: 'connection closed' }));
    return false;
  }
  const fault = faultFor(cmd);
  const reply = c ? answer(c) : refuse('unreadable command');
  if (fault) {
    const [action, arg] = fault;
    if (action === 'die') return false;
    if (action === 'silent') return true;
    if (action === 'late') sleep(Number(arg) || 0);
    if (action === 'garbage') { send('no document here'); return true; }
    if (action === 'nostatus') { send(doc({ error: 'status missing', volume: 0.25, state: 'ODD' })); return true; }
    if (action === 'notext') { send('<root><status></status><volume/><state></state></root>'); return true; }
    if (action === 'long') { send(doc({ status: 0, error: 'x'.repeat(2000) })); return true; }
  }
  send(reply);
  return cmd !== 'CLOSE';
}

// Reads blocking, line by line; the raw bytes are logged before any answer.
const chunk = Buffer.alloc(65536);
let pending = Buffer.alloc(0);
for (;;) {
  let n = 0;
  try {
    n = fs.readSync(0, chunk, 0, chunk.length, null);
  } catch (e) {
    if (e.code === 'EAGAIN') { sleep(5); continue; }
    if (e.code === 'EOF') break;
    throw e;
  }
  if (n === 0) break;
  fs.appendFileSync(inputLog, chunk.subarray(0, n));
  pending = Buffer.concat([pending, chunk.subarray(0, n)]);
  let nl;
  let go = true;
  while (go && (nl = pending.indexOf(0x0a)) >= 0) {
    const line = pending.subarray(0, nl + 1).toString('utf8');
    pending = pending.subarray(nl + 1);
    go = handle(line);
  }
  if (!go) break;
}
// A sender that hangs on after its input has ended, until it is killed.
if (fs.existsSync(path.join(dir, `${tag}.stubborn`))) {
  for (;;) sleep(60000);
}
process.exit(0);
