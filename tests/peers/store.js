'use strict';

// An S3-compatible store of other people's making, on a free port of 127.0.0.1:
//
//   node store.js PACKAGES DIRECTORY BUCKET
//
// PACKAGES is where `scripts/setup` has installed it, DIRECTORY where it keeps what it stores. Prints its
// port when it listens. Its one pair of keys is S3RVER and S3RVER. Ends with its standard input, so that it
// outlives no test.

const [packages, directory, bucket] = process.argv.slice(2);
const S3rver = require(`${packages}/node_modules/@20minutes/s3rver`);

process.stdin.on('end', () => process.exit(0)).resume();
new S3rver({
  address: '127.0.0.1',
  port: 0,
  silent: true,
  directory,
  vhostBuckets: false,
  configureBuckets: [{ name: bucket }],
})
  .run()
  .then(({ port }) => console.log(port));
