// Columns of values as workspace/report_columns.h describes them.

const POWERS = Array.from({ length: 23 }, (_, i) => 10 ** i);

/** The shortest text that reads back as the same float. */
function floatText(value) {
  for (let digits = 6; digits <= 9; ++digits) {
    const text = value.toPrecision(digits);
    if (Math.fround(Number(text)) === value) return String(Number(text));
  }
  return String(value);
}

/** Values of one field. `numbers` is null for texts. */
export class Column {
  constructor(kind, scale, numbers, exact, texts) {
    this.kind = kind;
    this.scale = scale;
    this.numbers = numbers;
    this.exact = exact;
    this.texts = texts;
    this.length = (numbers ?? texts).length;
  }

  /** The value as its JSON has it, without quotes. */
  text(i) {
    if (this.texts) return this.texts[i];
    if (this.exact) return String(this.exact[i]);
    return this.kind === 5 ? floatText(this.numbers[i]) : String(this.numbers[i]);
  }
}

const DIGITS = new Uint8Array(128);
[..."!\"#$%'()*+,-./0123456789:;=?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~"].forEach((c, i) => {
  DIGITS[c.charCodeAt(0)] = i;
});

/** The bytes that a text stands for: 13 bits in two characters, or up to 6 in the last one. */
export function bytesOf(text) {
  const pairs = text.length >> 1;
  const bytes = new Uint8Array((pairs * 13 + (text.length & 1) * 6) >> 3);
  let bits = 0;
  let count = 0;
  let at = 0;
  const take = (number, size) => {
    bits |= number << count;
    for (count += size; count >= 8; count -= 8) {
      bytes[at++] = bits;
      bits >>>= 8;
    }
  };
  for (let i = 0; i < 2 * pairs; i += 2) {
    take(DIGITS[text.charCodeAt(i)] + 91 * DIGITS[text.charCodeAt(i + 1)], 13);
  }
  if (text.length & 1) take(DIGITS[text.charCodeAt(text.length - 1)], 6);
  return bytes;
}

const REAL = new Float32Array(1);
const BITS = new Int32Array(REAL.buffer);

/** Turns the bits of a float into its place among all floats in their order, and back. */
const ordered = (bits) => bits ^ ((bits >> 31) & 0x7fffffff);

/** A column that is told by how far its numbers are above a line through those of another one. */
export function columnBeside(other, { kind, scale, slope, offset, above }) {
  const numbers = other.numbers.map((number, i) => {
    const near = Math.fround(number) * slope + offset;
    if (kind !== 5) return (Math.floor(near) + above.numbers[i]) / POWERS[scale];
    REAL[0] = near;
    BITS[0] = ordered(ordered(BITS[0]) + above.numbers[i]);
    return REAL[0];
  });
  return new Column(kind, scale, numbers, null, null);
}

export class ColumnReader {
  constructor(bytes) {
    this.bytes = bytes;
    this.view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
    this.at = 0;
  }

  uint32() {
    this.at += 4;
    return this.view.getUint32(this.at - 4, true);
  }

  take(size) {
    this.at += size;
    return this.bytes.subarray(this.at - size, this.at);
  }

  /** A column, or the place of one in another setting, beside which it may be: see columnBeside. */
  column() {
    const packed = this.bytes[this.at] >= 128;
    const kind = this.bytes[this.at] & 127;
    const scale = this.bytes[this.at + 1];
    this.at += 2;
    const length = this.uint32();
    if (kind === 9) return this.texts(length);
    if (kind === 10) return { place: length };
    if (kind === 11) {
      const at = this.at;
      this.at += 13;
      return {
        place: length,
        kind: this.bytes[at],
        scale,
        slope: this.view.getFloat32(at + 1, true),
        offset: this.view.getFloat64(at + 5, true),
        above: this.column(),
      };
    }
    const width = kind <= 4 ? kind : kind === 5 ? 4 : 8;
    const { buffer } = packed ? this.packed(length, width) : this.planes(length, width);
    const Array64 = { 1: Int8Array, 2: Int16Array, 4: Int32Array, 5: Float32Array, 6: Float64Array }[kind];
    if (Array64) {
      const numbers = Float64Array.from(new Array64(buffer));
      if (scale > 0) for (let i = 0; i < length; ++i) numbers[i] /= POWERS[scale];
      return new Column(kind, scale, numbers, null, null);
    }
    const exact = kind === 7 ? new BigInt64Array(buffer) : new BigUint64Array(buffer);
    return new Column(kind, 0, Float64Array.from(exact, Number), exact, null);
  }

  /** Numbers whose bytes stand apart, joined. */
  planes(length, width) {
    const planes = this.take(length * width);
    const joined = new Uint8Array(length * width);
    for (let k = 0; k < width; ++k) {
      for (let i = 0; i < length; ++i) joined[i * width + k] = planes[k * length + i];
    }
    return joined;
  }

  /** Numbers of some bits above the lowest, as numbers of `width` bytes. */
  packed(length, width) {
    const low = this.view.getBigUint64(this.at, true);
    const bits = this.bytes[this.at + 8];
    this.at += 9;
    const bytes = this.take(Math.ceil((length * bits) / 8));
    const numbers = new DataView(new ArrayBuffer(length * width));
    let at = 0;
    const next = (count) => {
      let number = 0;
      for (let done = 0; done < count; ) {
        const part = Math.min(count - done, 8 - (at & 7));
        number += ((bytes[at >> 3] >> (at & 7)) & ((1 << part) - 1)) * 2 ** done;
        at += part;
        done += part;
      }
      return number;
    };
    const low32 = Number(low & 0xffffffffn);
    for (let i = 0; i < length; ++i) {
      const number = next(Math.min(bits, 32));
      if (width === 8) {
        const high = bits > 32 ? next(bits - 32) : 0;
        numbers.setBigUint64(i * 8, low + BigInt(number) + (BigInt(high) << 32n), true);
      } else if (width === 4) {
        numbers.setUint32(i * 4, low32 + number, true);
      } else if (width === 2) {
        numbers.setUint16(i * 2, low32 + number, true);
      } else {
        numbers.setUint8(i, low32 + number);
      }
    }
    return numbers;
  }

  texts(length) {
    const sizes = Array.from({ length }, () => this.uint32());
    const decoder = new TextDecoder();
    return new Column(
      9,
      0,
      null,
      null,
      sizes.map((size) => decoder.decode(this.take(size))),
    );
  }
}
