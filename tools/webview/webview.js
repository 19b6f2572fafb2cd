#!/usr/bin/env node
// Tessara's webview program: renders web pages off screen for the game's
// in-game screens, through the system's chromium in headless mode.
//
//   node webview.js --pipe STEM [--fps N] [--browser PATH] [--max-frame BYTES]
//
// STEM is the path of the game's two named pipes without their endings
// (../Tessara-data/webview for the pipe "webview" of a game run in its run
// directory). The game makes the pipes; this program opens them:
//
//   STEM.s2c  game -> program: one command per line
//     open NAME URL WIDTH HEIGHT SCALE   a page of WIDTH x HEIGHT pixels, drawn
//                                        SCALE pixels per page pixel
//     close NAME
//     ping                               keep-alive; nothing to do
//     input NAME JSON                    mouseMove, mouseDown, mouseUp (x, y in
//                                        page pixels, button), mouseWheel
//                                        (deltaX, deltaY), keyDown and keyUp
//                                        (keyCode: a key name), char (keyCode:
//                                        one byte of the typed text, UTF-8)
//   STEM.c2s  program -> game: frames
//     name length  4 bytes, unsigned, native order
//     data length  4 bytes, unsigned, native order
//     name         the view's name
//     data         pixels for the view's texture, as the texture loads them:
//                  either the whole image, WIDTH x HEIGHT pixels of 4 bytes
//                  (red, green, blue, alpha), rows from the top; or a region:
//                  the characters "NXR1", then x, y, width and height as 4-byte
//                  unsigned native-order numbers, then that rectangle's pixels
//                  in the same layout. A region frame is never exactly the
//                  size of the whole image (such a frame would be read as one).
//
// A page sends a frame when it changes (chromium's screencast tells), at most
// --fps times a second (default 30); only the bands of rows that changed since
// the last frame go, each in frames below --max-frame bytes (default 512 KiB;
// the game drops frames of 1 MiB or more).
//
// The program ends when the game closes its end of STEM.s2c (the game ended
// or let the views go) and when the browser goes away.
'use strict';

const fs = require('fs');
const os = require('os');
const { PNG } = require('pngjs');
const puppeteer = require('puppeteer-core');

const usage = 'usage: node webview.js --pipe STEM [--fps N] [--browser PATH] [--max-frame BYTES]';

function parseArguments(argv) {
  const options = { pipe: null, fps: 30, browser: process.env.TESSARA_WEBVIEW_BROWSER || '/usr/bin/chromium',
                    maxFrame: 512 * 1024 };
  for (let i = 0; i < argv.length; ++i) {
    const value = argv[i + 1];
    switch (argv[i]) {
    case '--pipe': options.pipe = value; ++i; break;
    case '--fps': options.fps = Number(value); ++i; break;
    case '--browser': options.browser = value; ++i; break;
    case '--max-frame': options.maxFrame = Number(value); ++i; break;
    case '--help': console.log(usage); process.exit(0); break;
    default: fail(`unknown argument "${argv[i]}"\n${usage}`);
    }
  }
  if (!options.pipe) fail(usage);
  if (!(options.fps > 0)) fail('--fps must be a number above 0');
  if (!(options.maxFrame >= 4096)) fail('--max-frame must be at least 4096 bytes');
  return options;
}

function fail(message) {
  console.error(`[webview] ${message}`);
  process.exit(2);
}

function log(message) {
  console.error(`[webview] ${message}`);
}

// ---------------------------------------------------------------------------
// Frames to the game.

const littleEndian = os.endianness() === 'LE';

function writeUint32(buffer, value, offset) {
  if (littleEndian) buffer.writeUInt32LE(value, offset);
  else buffer.writeUInt32BE(value, offset);
}

/// The frames of the rows first..last (inclusive) of rgba, an image of width x
/// height, each below maxFrame bytes together with its name.
function* bandFrames(name, rgba, width, height, first, last, maxFrame) {
  const nameBytes = Buffer.from(name, 'latin1');
  const rowBytes = width * 4;
  const room = maxFrame - 8 - nameBytes.length - 20;
  const rowsPerBand = Math.max(1, Math.floor(room / rowBytes));
  for (let top = first; top <= last; top += rowsPerBand) {
    const rows = Math.min(rowsPerBand, last + 1 - top);
    const pixels = rgba.subarray(top * rowBytes, (top + rows) * rowBytes);
    let data;
    if (20 + pixels.length === width * height * 4) {
      data = rgba; // would read as a whole image: send the whole image
    } else {
      data = Buffer.alloc(20 + pixels.length);
      data.write('NXR1', 0, 'latin1');
      writeUint32(data, 0, 4);
      writeUint32(data, top, 8);
      writeUint32(data, width, 12);
      writeUint32(data, rows, 16);
      pixels.copy(data, 20);
    }
    const head = Buffer.alloc(8);
    writeUint32(head, nameBytes.length, 0);
    writeUint32(head, data.length, 4);
    yield Buffer.concat([head, nameBytes, data]);
  }
}

/// The first and last row where a and b (images of the same size) differ; null if none.
function changedRows(a, b, width, height) {
  const rowBytes = width * 4;
  let first = -1;
  let last = -1;
  for (let y = 0; y < height; ++y) {
    const start = y * rowBytes;
    if (a.compare(b, start, start + rowBytes, start, start + rowBytes) !== 0) {
      if (first < 0) first = y;
      last = y;
    }
  }
  return first < 0 ? null : [first, last];
}

/// The decoded PNG as width x height RGBA pixels: cropped or padded (with
/// transparent black) where the browser's frame has another size.
function toImage(png, width, height) {
  if (png.width === width && png.height === height) return png.data;
  const out = Buffer.alloc(width * height * 4);
  const rows = Math.min(height, png.height);
  const rowBytes = Math.min(width, png.width) * 4;
  for (let y = 0; y < rows; ++y) png.data.copy(out, y * width * 4, y * png.width * 4, y * png.width * 4 + rowBytes);
  return out;
}

// ---------------------------------------------------------------------------
// Input from the game, in chromium's terms.

// Key names as the game sends them -> [key, code, Windows key code].
const namedKeys = {
  Space: [' ', 'Space', 32], Enter: ['Enter', 'Enter', 13], Tab: ['Tab', 'Tab', 9],
  Backspace: ['Backspace', 'Backspace', 8], Insert: ['Insert', 'Insert', 45], Delete: ['Delete', 'Delete', 46],
  Right: ['ArrowRight', 'ArrowRight', 39], Left: ['ArrowLeft', 'ArrowLeft', 37], Down: ['ArrowDown', 'ArrowDown', 40],
  Up: ['ArrowUp', 'ArrowUp', 38], PageUp: ['PageUp', 'PageUp', 33], PageDown: ['PageDown', 'PageDown', 34],
  Home: ['Home', 'Home', 36], End: ['End', 'End', 35], Capslock: ['CapsLock', 'CapsLock', 20],
  Scrolllock: ['ScrollLock', 'ScrollLock', 145], Numlock: ['NumLock', 'NumLock', 144],
  PrintScreen: ['PrintScreen', 'PrintScreen', 44], Pause: ['Pause', 'Pause', 19],
  numdec: ['.', 'NumpadDecimal', 110], numdiv: ['/', 'NumpadDivide', 111], nummult: ['*', 'NumpadMultiply', 106],
  numsub: ['-', 'NumpadSubtract', 109], numadd: ['+', 'NumpadAdd', 107], Shift: ['Shift', 'ShiftLeft', 16],
  Ctrl: ['Control', 'ControlLeft', 17], Alt: ['Alt', 'AltLeft', 18], Super: ['Meta', 'MetaLeft', 91],
  Menu: ['ContextMenu', 'ContextMenu', 93],
  "'": ["'", 'Quote', 222], ',': [',', 'Comma', 188], '-': ['-', 'Minus', 189], '.': ['.', 'Period', 190],
  '/': ['/', 'Slash', 191], ';': [';', 'Semicolon', 186], '[': ['[', 'BracketLeft', 219],
  ']': [']', 'BracketRight', 221], '`': ['`', 'Backquote', 192], '=': ['=', 'Equal', 187],
  '\\': ['\\', 'Backslash', 220],
};

function keyInfo(name) {
  if (namedKeys[name]) return namedKeys[name];
  if (/^[A-Z]$/.test(name)) return [name.toLowerCase(), `Key${name}`, name.charCodeAt(0)];
  if (/^[0-9]$/.test(name)) return [name, `Digit${name}`, name.charCodeAt(0)];
  const numpad = /^num([0-9])$/.exec(name);
  if (numpad) return [numpad[1], `Numpad${numpad[1]}`, 96 + Number(numpad[1])];
  return null;
}

// ---------------------------------------------------------------------------
// Views.

class View {
  constructor(program, name, url, width, height, scale) {
    Object.assign(this, { program, name, url, width, height, scale });
    this.page = null;
    this.session = null;
    this.closed = false;
    this.sent = null;       // the image as the game has it
    this.latest = null;     // the newest image from the browser, not sent yet
    this.lastSent = 0;      // when the last frame went, ms
    this.timer = null;      // a frame waiting for its turn
    this.mouse = { x: 0, y: 0, buttons: 0 };
    this.text = new TextDecoder('utf-8');
    this.waitingForDrain = false;
    this.queue = Promise.resolve(); // input events, in order, once the page has loaded
  }

  open() {
    this.queue = this.start().catch((error) => log(`${this.name}: could not open ${this.url}: ${error.message}`));
  }

  async start() {
    const browser = await this.program.launched;
    if (this.closed) return;
    const page = await browser.newPage();
    if (this.closed) { await page.close().catch(() => {}); return; }
    this.page = page;
    await page.setViewport({ width: Math.max(1, Math.round(this.width / this.scale)),
                             height: Math.max(1, Math.round(this.height / this.scale)),
                             deviceScaleFactor: this.scale });
    this.session = await page.createCDPSession();
    this.session.on('Page.screencastFrame', (event) => this.onScreencast(event));
    await this.session.send('Page.startScreencast',
                            { format: 'png', maxWidth: this.width, maxHeight: this.height, everyNthFrame: 1 });
    try {
      await page.goto(this.url, { waitUntil: 'load', timeout: 30000 });
    } catch (error) {
      log(`${this.name}: ${this.url} did not load: ${error.message}`);
    }
  }

  onScreencast(event) {
    if (this.closed) return;
    this.session.send('Page.screencastFrameAck', { sessionId: event.sessionId }).catch(() => {});
    try {
      this.latest = toImage(PNG.sync.read(Buffer.from(event.data, 'base64')), this.width, this.height);
    } catch (error) {
      log(`${this.name}: a frame could not be read: ${error.message}`);
      return;
    }
    this.schedule();
  }

  /// Sends the newest image now, or when the rate allows.
  schedule() {
    if (this.closed || this.timer || !this.latest) return;
    const wait = this.lastSent + 1000 / this.program.options.fps - Date.now();
    if (wait > 0) {
      this.timer = setTimeout(() => { this.timer = null; this.schedule(); }, wait);
      return;
    }
    if (!this.program.canSend()) { // the game reads slowly: try again when it has caught up
      if (!this.waitingForDrain) {
        this.waitingForDrain = true;
        this.program.onDrain(() => { this.waitingForDrain = false; this.schedule(); });
      }
      return;
    }
    const image = this.latest;
    this.latest = null;
    this.lastSent = Date.now();
    const rows = this.sent ? changedRows(this.sent, image, this.width, this.height) : [0, this.height - 1];
    this.sent = image;
    if (!rows) return;
    for (const frame of bandFrames(this.name, image, this.width, this.height, rows[0], rows[1],
                                   this.program.options.maxFrame))
      this.program.send(frame);
  }

  input(event) {
    this.queue = this.queue.then(() => this.dispatch(event)).catch((error) => {
      log(`${this.name}: input ${event.type} failed: ${error.message}`);
    });
  }

  async dispatch(event) {
    if (!this.session) return;
    const mouse = this.mouse;
    const send = (method, params) => this.session.send(method, params);
    const number = (value) => (Number.isFinite(Number(value)) ? Number(value) : 0);
    switch (event.type) {
    case 'mouseMove':
      mouse.x = number(event.x); mouse.y = number(event.y);
      return send('Input.dispatchMouseEvent', { type: 'mouseMoved', x: mouse.x, y: mouse.y,
                                                button: mouse.buttons & 1 ? 'left' : mouse.buttons & 2 ? 'right' : 'none',
                                                buttons: mouse.buttons });
    case 'mouseDown':
    case 'mouseUp': {
      const button = event.button === 'right' ? 'right' : 'left';
      const bit = button === 'right' ? 2 : 1;
      mouse.x = number(event.x); mouse.y = number(event.y);
      mouse.buttons = event.type === 'mouseDown' ? mouse.buttons | bit : mouse.buttons & ~bit;
      return send('Input.dispatchMouseEvent', { type: event.type === 'mouseDown' ? 'mousePressed' : 'mouseReleased',
                                                x: mouse.x, y: mouse.y, button, buttons: mouse.buttons,
                                                clickCount: 1 });
    }
    case 'mouseWheel': // the game's wheel turns up for positive steps; the page scrolls down for positive deltas
      return send('Input.dispatchMouseEvent', { type: 'mouseWheel', x: mouse.x, y: mouse.y,
                                                deltaX: -number(event.deltaX), deltaY: -number(event.deltaY) });
    case 'keyDown':
    case 'keyUp': {
      const info = keyInfo(String(event.keyCode));
      if (!info) return;
      const [key, code, windowsVirtualKeyCode] = info;
      await send('Input.dispatchKeyEvent', { type: event.type === 'keyDown' ? 'rawKeyDown' : 'keyUp', key, code,
                                             windowsVirtualKeyCode, nativeVirtualKeyCode: windowsVirtualKeyCode });
      // Enter types a line break in a text field, as a real key would.
      if (event.type === 'keyDown' && key === 'Enter')
        await send('Input.dispatchKeyEvent', { type: 'char', text: '\r', unmodifiedText: '\r', key });
      return;
    }
    case 'char': {
      // One byte of UTF-8 per event: the decoder gives the character when it is whole.
      const code = String(event.keyCode).charCodeAt(0);
      if (!(code >= 0 && code <= 255)) return;
      const text = this.text.decode(Uint8Array.of(code), { stream: true });
      if (text) await send('Input.dispatchKeyEvent', { type: 'char', text, unmodifiedText: text, key: text });
      return;
    }
    default:
      log(`${this.name}: unknown input "${event.type}"`);
    }
  }

  async close() {
    this.closed = true;
    if (this.timer) clearTimeout(this.timer);
    if (this.page) await this.page.close().catch(() => {});
  }
}

// ---------------------------------------------------------------------------
// The program.

class Program {
  constructor(options) {
    this.options = options;
    this.views = new Map();
    this.browser = null;
    this.out = null;
    this.drainWaiters = [];
    this.pending = Buffer.alloc(0); // bytes of a command line not complete yet
    this.ending = false;
    this.launched = null; // the browser, once it has started
  }

  run() {
    for (const ending of ['s2c', 'c2s']) {
      const file = `${this.options.pipe}.${ending}`;
      let isPipe = false;
      try { isPipe = fs.statSync(file).isFIFO(); } catch (error) { /* missing */ }
      if (!isPipe) fail(`${file} is not the game's pipe (is the game running? --pipe names them without .s2c)`);
    }
    // The game writes commands only once this end is open, and reads frames
    // from the other; each open waits for the game's. Neither creates a file.
    const input = fs.createReadStream(`${this.options.pipe}.s2c`);
    input.on('data', (chunk) => this.onData(chunk));
    input.on('end', () => this.end('the game closed the pipe'));
    input.on('error', (error) => this.end(`reading the game's commands failed: ${error.message}`, 1));
    this.out = fs.createWriteStream(`${this.options.pipe}.c2s`, { flags: fs.constants.O_WRONLY });
    this.out.on('error', (error) => this.end(`the game stopped reading (${error.code || error.message})`));
    this.out.on('drain', () => {
      const waiters = this.drainWaiters;
      this.drainWaiters = [];
      for (const waiter of waiters) waiter();
    });
    // Views wait for the browser; commands are taken meanwhile. Through a pipe
    // of its own, the browser ends with this program, however it ends.
    this.launched = puppeteer.launch({
      executablePath: this.options.browser,
      headless: true,
      pipe: true,
      args: ['--no-sandbox', '--disable-gpu', '--hide-scrollbars', '--mute-audio', '--no-first-run',
             '--disable-extensions', '--disable-background-timer-throttling',
             '--disable-renderer-backgrounding', '--disable-backgrounding-occluded-windows'],
    });
    this.launched.then(async (browser) => {
      this.browser = browser;
      if (this.ending) { await browser.close().catch(() => {}); return; }
      browser.on('disconnected', () => this.end('the browser went away', 1));
      log(`running ${await browser.version()} for ${this.options.pipe}`);
    }, (error) => {
      log(`could not start ${this.options.browser}: ${error.message}`);
      this.end('no browser', 1);
    });
  }

  onData(chunk) {
    this.pending = Buffer.concat([this.pending, chunk]);
    let start = 0;
    for (let end = this.pending.indexOf(10); end >= 0; end = this.pending.indexOf(10, start)) {
      // Bytes as characters 0 to 255, so that each byte of typed UTF-8 text
      // stays one character; the URLs of open commands are read as UTF-8.
      const line = this.pending.subarray(start, end);
      this.command(line.toString(line.subarray(0, 5).toString('latin1') === 'open ' ? 'utf8' : 'latin1'));
      start = end + 1;
    }
    this.pending = this.pending.subarray(start);
    if (this.pending.length > 1 << 20) {
      log('dropped a command line of more than 1 MiB');
      this.pending = Buffer.alloc(0);
    }
  }

  command(line) {
    const blank = line.indexOf(' ');
    const verb = blank < 0 ? line : line.slice(0, blank);
    const rest = blank < 0 ? '' : line.slice(blank + 1);
    switch (verb) {
    case 'ping':
      return;
    case 'open': {
      const [name, url, width, height, scale] = rest.split(' ');
      const w = Number(width), h = Number(height), s = Number(scale);
      if (!name || !url || !(w >= 1 && h >= 1 && w <= 16384 && h <= 16384) || !(s > 0)) {
        log(`refused "${line}": expected open NAME URL WIDTH HEIGHT SCALE`);
        return;
      }
      this.close(name);
      const view = new View(this, name, url, w, h, s);
      this.views.set(name, view);
      view.open();
      return;
    }
    case 'close':
      this.close(rest);
      return;
    case 'input': {
      const space = rest.indexOf(' ');
      const view = this.views.get(space < 0 ? rest : rest.slice(0, space));
      if (!view || space < 0) return; // a view closed meanwhile
      let event;
      try {
        event = JSON.parse(rest.slice(space + 1));
      } catch (error) {
        log(`refused "${line}": ${error.message}`);
        return;
      }
      view.input(event);
      return;
    }
    default:
      log(`unknown command "${line.slice(0, 80)}"`);
    }
  }

  close(name) {
    const view = this.views.get(name);
    if (!view) return;
    this.views.delete(name);
    view.close();
  }

  canSend() { return this.out.writableLength < 4 * this.options.maxFrame; }
  onDrain(waiter) { this.drainWaiters.push(waiter); }
  send(frame) { if (!this.ending) this.out.write(frame); }

  async end(why, code = 0) {
    if (this.ending) return;
    this.ending = true;
    log(`ending: ${why}`);
    const done = () => process.exit(code);
    setTimeout(done, 5000).unref(); // whatever hangs
    for (const view of this.views.values()) view.closed = true;
    try {
      if (this.browser && this.browser.connected) await this.browser.close();
    } catch (error) {
      log(`closing the browser: ${error.message}`);
    }
    if (this.out) this.out.end(done);
    else done();
  }
}

process.on('SIGPIPE', () => {}); // a write to a closed pipe fails as an error instead

if (require.main === module) {
  const options = parseArguments(process.argv.slice(2));
  if (!fs.existsSync(options.browser)) fail(`no browser at ${options.browser} (install chromium, or pass --browser)`);
  const program = new Program(options);
  for (const signal of ['SIGTERM', 'SIGINT', 'SIGHUP']) process.on(signal, () => program.end(signal));
  program.run();
}

module.exports = { bandFrames, changedRows, keyInfo, toImage };
