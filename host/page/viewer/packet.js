// A picture as the packer sends it (docs/viewing.md): a header of 36 bytes or more, little-endian, and the JPEG bytes.

const LEAST_HEADER_BYTES = 36;
const MARK = 0x3150574d; // "MWP1"

export class PacketError extends Error {}

export function parsePacket(buffer) {
    const bytes = new DataView(buffer);
    if (buffer.byteLength < LEAST_HEADER_BYTES || bytes.getUint32(0, true) !== MARK) {
        throw new PacketError("no picture of the packer");
    }
    const headerBytes = bytes.getUint16(4, true);
    const size = bytes.getUint32(20, true);
    if (headerBytes < LEAST_HEADER_BYTES || headerBytes + size !== buffer.byteLength) {
        throw new PacketError("a picture of another size than its header tells");
    }
    return {
        last: (bytes.getUint16(6, true) & 1) !== 0,
        time: Number(bytes.getBigUint64(8, true)),
        sequence: bytes.getUint32(16, true),
        width: bytes.getUint16(24, true),
        height: bytes.getUint16(26, true),
        content: {
            left: bytes.getUint16(28, true), top: bytes.getUint16(30, true),
            width: bytes.getUint16(32, true), height: bytes.getUint16(34, true),
        },
        jpeg: new Blob([new Uint8Array(buffer, headerBytes)], { type: "image/jpeg" }),
    };
}
