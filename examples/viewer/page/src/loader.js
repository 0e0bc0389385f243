import { getBytes } from "./api.js";

const IN_FLIGHT = 4;
const RETRY_MS = 2000;

/// Fetches what is wanted, a few at a time, the first wanted first, and nothing twice at once.
export class Loader {
  /// @param arrived  called with a path and its bytes.
  constructor(arrived) {
    this.arrived = arrived;
    this.wanted = [];
    this.flying = new Set();
    this.resting = new Set(); // failed a short while ago
    this.bytes = 0;
    this.requests = 0;
  }

  /// @param paths  all that is wanted and not there yet; replaces what was wanted before.
  want(paths) {
    this.wanted = paths;
    while (this.flying.size < IN_FLIGHT && this.startNext());
  }

  startNext() {
    const path = this.wanted.find((p) => !this.flying.has(p) && !this.resting.has(p));
    if (path === undefined) return false;
    this.flying.add(path);
    this.requests += 1;
    this.fetch(path);
    return true;
  }

  async fetch(path) {
    try {
      const bytes = await getBytes(path);
      this.bytes += bytes.byteLength;
      this.wanted = this.wanted.filter((p) => p !== path);
      this.arrived(path, bytes);
    } catch {
      this.resting.add(path);
      setTimeout(() => {
        this.resting.delete(path);
        this.want(this.wanted);
      }, RETRY_MS);
    }
    this.flying.delete(path);
    this.want(this.wanted);
  }
}
