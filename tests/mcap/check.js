// Reads an MCAP file made by mdstore with the ecosystem's own TypeScript reader, both ways
// (through the summary and the chunk indexes, and front to back with chunk CRCs checked),
// checks the data section and summary CRCs, that every message is valid UTF-8 and JSON and
// that the messages come in log time order through the indexes, and prints what it found as one JSON line. Exit status 1 on
// anything a reader would reject.
"use strict";
const fs = require("fs");
const { McapIndexedReader, McapStreamReader } = require("@mcap/core");
const { FileHandleReadable } = require("@mcap/nodejs");
const { loadDecompressHandlers } = require("@mcap/support");
const { crc32 } = require("@foxglove/crc");

function fail(problem) {
  console.log(JSON.stringify({ error: problem }));
  process.exit(1);
}

const utf8 = new TextDecoder("utf-8", { fatal: true });
function text(bytes, where) {
  try {
    return utf8.decode(bytes);
  } catch (e) {
    return fail(`${where}: not UTF-8`);
  }
}

// The CRCs the reader does not check itself: data section (from the first byte to DataEnd) and
// summary (from its first byte through the footer's summary offset start).
function checkCrcs(bytes, dataEnd, footer) {
  const view = new DataView(bytes.buffer, bytes.byteOffset);
  const footerStart = bytes.length - 8 - 29;
  const dataEndStart = Number(footer.summaryStart) - 13;
  if (view.getUint8(dataEndStart) !== 0x0f) fail("no DataEnd record before the summary");
  if (crc32(bytes.subarray(0, dataEndStart)) !== dataEnd.dataSectionCrc) fail("data section CRC");
  if (crc32(bytes.subarray(Number(footer.summaryStart), footerStart + 25)) !== footer.summaryCrc) {
    fail("summary CRC");
  }
}

async function main() {
  const path = process.argv[2];
  const bytes = fs.readFileSync(path);
  const decompressHandlers = await loadDecompressHandlers();
  const found = { topics: {}, records: [], utc: [], times: [], fixes: [], logs: [] };
  found.ascending = true;

  const stream = new McapStreamReader({ decompressHandlers, validateCrcs: true });
  stream.append(bytes);
  const channels = new Map();
  const schemas = new Map();
  let dataEnd, footer;
  for (let record; (record = stream.nextRecord()); ) {
    if (record.type === "Schema") schemas.set(record.id, record);
    if (record.type === "Channel") channels.set(record.id, record);
    if (record.type === "DataEnd") dataEnd = record;
    if (record.type === "Footer") footer = record;
    if (record.type === "Header") found.library = record.library;
    if (record.type === "Metadata") found.metadata = Object.fromEntries(record.metadata);
    if (record.type !== "Message") continue;
    const channel = channels.get(record.channelId);
    const data = text(record.data, channel.topic);
    let message;
    try {
      message = JSON.parse(data);
    } catch (e) {
      fail(`${channel.topic}: not JSON: ${data}`);
    }
    const topic = (found.topics[channel.topic] ??= { indexed: 0, stream: 0 });
    const schema = schemas.get(channel.schemaId);
    Object.assign(topic, { schema: schema.name, schemaEncoding: schema.encoding });
    topic.messageEncoding = channel.messageEncoding;
    JSON.parse(text(schema.data, schema.name));
    topic.stream++;
    if (channel.topic === "/gps/fix") {
      found.fixes.push([message.latitude, message.longitude]);
    } else if (channel.topic === "/metadata/log") {
      found.logs.push([message.level, message.message]);
    } else {
      found.records.push(data);
      found.utc.push(new Date(Number(record.logTime / 1000000n)).toISOString());
      found.times.push(`${record.logTime} ${record.publishTime}`);
    }
  }
  if (!stream.done()) fail("the stream ends before its footer");
  checkCrcs(bytes, dataEnd, footer);

  const handle = await fs.promises.open(path, "r");
  const indexed = await McapIndexedReader.Initialize({
    readable: new FileHandleReadable(handle),
    decompressHandlers,
  });
  let lastLogTime = -1n;
  found.chunks = indexed.chunkIndexes.length;
  found.compression = [...new Set(indexed.chunkIndexes.map((c) => c.compression))].join(",");
  found.metadataIndexes = indexed.metadataIndexes.length;
  for (const [id, count] of indexed.statistics.channelMessageCounts) {
    const topic = (found.topics[indexed.channelsById.get(id).topic] ??= {});
    topic.statistics = Number(count);
  }
  for await (const message of indexed.readMessages({ validateCrcs: true })) {
    found.topics[indexed.channelsById.get(message.channelId).topic].indexed++;
    found.ascending = found.ascending && message.logTime >= lastLogTime;
    lastLogTime = message.logTime;
  }
  await handle.close();
  console.log(JSON.stringify(found));
}

main().catch((e) => fail(String(e)));
