// Reads headers, sections, imports and resources of a 64-bit Windows program; the layout is Microsoft's
// "PE Format".
export class PeFile {
  constructor(bytes) {
    this.bytes = bytes;
    const header = bytes.readUInt32LE(0x3c);
    if (bytes.toString('latin1', header, header + 4) !== 'PE\0\0') throw new Error('Not a Windows program.');
    const optional = header + 24;
    if (bytes.readUInt16LE(optional) !== 0x20b) throw new Error('Not a 64-bit program.');
    this.timestamp = bytes.readUInt32LE(header + 8);
    this.symbols = bytes.readUInt32LE(header + 16);
    this.checksum = bytes.readUInt32LE(optional + 64);
    this.flags = bytes.readUInt16LE(optional + 70);
    this.directories = optional + 112;
    this.sections = this.#readSections(optional + bytes.readUInt16LE(header + 20), bytes.readUInt16LE(header + 6));
  }

  #readSections(at, count) {
    return Array.from({ length: count }, (_, i) => {
      const entry = at + 40 * i;
      const [size, address, rawSize, offset] = [8, 12, 16, 20].map((field) => this.bytes.readUInt32LE(entry + field));
      return { name: this.bytes.toString('latin1', entry, entry + 8).replace(/\0+$/, ''), size, address, rawSize, offset };
    });
  }

  /** Address and size of a data directory: 1 imports, 2 resources, 5 relocations. */
  directory(number) {
    const at = this.directories + 8 * number;
    return { address: this.bytes.readUInt32LE(at), size: this.bytes.readUInt32LE(at + 4) };
  }

  offsetOf(address) {
    const section = this.sections.find((s) => address >= s.address && address < s.address + s.rawSize);
    if (!section) throw new Error(`No section holds the address ${address}.`);
    return address - section.address + section.offset;
  }

  #textAt(address) {
    const at = this.offsetOf(address);
    return this.bytes.toString('latin1', at, this.bytes.indexOf(0, at));
  }

  /** Lower-case names of the libraries that Windows loads with the program. */
  get imports() {
    const names = [];
    for (let at = this.offsetOf(this.directory(1).address); ; at += 20) {
      const name = this.bytes.readUInt32LE(at + 12);
      if (name === 0) return names;
      names.push(this.#textAt(name).toLowerCase());
    }
  }

  /** The bytes of the resource with that type and id, in its first language. */
  resource(type, id) {
    const root = this.offsetOf(this.directory(2).address);
    const entry = (table, wanted) => {
      const at = root + table;
      const count = this.bytes.readUInt16LE(at + 12) + this.bytes.readUInt16LE(at + 14);
      for (let i = 0; i < count; i++) {
        const key = this.bytes.readUInt32LE(at + 16 + 8 * i);
        if (wanted === undefined || key === wanted) return this.bytes.readUInt32LE(at + 20 + 8 * i) & 0x7fffffff;
      }
      throw new Error(`There is no resource ${type}/${id}.`);
    };
    const leaf = root + entry(entry(entry(0, type), id));
    const start = this.offsetOf(this.bytes.readUInt32LE(leaf));
    return this.bytes.subarray(start, start + this.bytes.readUInt32LE(leaf + 4));
  }
}
