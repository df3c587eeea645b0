'use strict';

// A server of HTTP/2 over TLS, on a free port of 127.0.0.1:
//
//   node http2.js CERTIFICATE KEY
//
// Both are files in PEM form. Prints its port when it listens. Ends with its standard input, so that it
// outlives no test.
//
//   /empty/STATUS  an answer that ends with its headers, without a length
//   /slow          64 MiB announced, a piece of 16 KiB at once and one each time that somebody asks for /more
//   /wait          answers once somebody asks for /go
//   /refuse        the stream is reset, once; then "again"
//   /broken        two bytes of five, then the stream is reset, once; then "again"
//   /state         {"sent": bytes given out by /slow, "sessions": open, "refused": times asked for /refuse,
//                  "broken": the same of /broken}

const http2 = require('http2');
const fs = require('fs');

const [certificate, key] = process.argv.slice(2);
const piece = Buffer.alloc(16 * 1024, 'x');
const waiting = [];
const slow = new Set();
const state = { sent: 0, sessions: 0, refused: 0, broken: 0 };

function sendPiece(stream) {
  stream.write(piece);
  state.sent += piece.length;
}

function answer(stream, headers) {
  stream.on('error', () => {}); // the client may be gone at any time
  const [, name, status] = headers[':path'].split('/');
  switch (name) {
    case 'empty':
      return stream.respond({ ':status': Number(status) }, { endStream: true });
    case 'slow':
      stream.respond({ ':status': 200, 'content-length': 64 * 1024 * 1024 });
      slow.add(stream);
      stream.on('close', () => slow.delete(stream));
      return sendPiece(stream);
    case 'more':
      slow.forEach(sendPiece);
      return stream.respond({ ':status': 200 }, { endStream: true });
    case 'wait':
      return waiting.push(stream);
    case 'refuse':
      state.refused += 1;
      if (state.refused === 1) return stream.close(http2.constants.NGHTTP2_REFUSED_STREAM);
      return stream.end('again');
    case 'broken':
      state.broken += 1;
      stream.respond({ ':status': 200, 'content-length': 5 });
      if (state.broken > 1) return stream.end('again');
      return stream.write('ag', () => stream.close(http2.constants.NGHTTP2_INTERNAL_ERROR));
    case 'go':
      for (const other of waiting.splice(0)) other.end('late');
      return stream.respond({ ':status': 200 }, { endStream: true });
    default:
      return stream.end(JSON.stringify(state));
  }
}

const server = http2.createSecureServer({ cert: fs.readFileSync(certificate), key: fs.readFileSync(key) });
server.on('session', (session) => {
  state.sessions += 1;
  session.on('close', () => (state.sessions -= 1));
  session.on('error', () => {});
});
server.on('stream', answer);
process.stdin.on('end', () => process.exit(0)).resume();
server.listen(0, '127.0.0.1', () => console.log(server.address().port));
