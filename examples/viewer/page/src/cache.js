/// Nodes in memory within a limit of bytes: what is not drawn goes first, the longest unused of it before others.
export class NodeCache {
  /// @param dropped  called with a node that is dropped.
  constructor(limit, dropped) {
    this.limit = limit;
    this.dropped = dropped;
    this.nodes = new Map(); // by key, the longest unused first
    this.bytes = 0;
  }

  has(key) {
    return this.nodes.has(key);
  }

  get(key) {
    return this.nodes.get(key);
  }

  add(key, node) {
    this.nodes.set(key, node);
    this.bytes += node.bytes;
  }

  grow(key, bytes) {
    this.nodes.get(key).bytes += bytes;
    this.bytes += bytes;
  }

  /// Marks nodes as used now, and drops others until the limit holds.
  use(keys) {
    for (const key of keys) {
      const node = this.nodes.get(key);
      if (!node) continue;
      this.nodes.delete(key);
      this.nodes.set(key, node);
    }
    for (const [key, node] of this.nodes) {
      if (this.bytes <= this.limit) return;
      if (keys.has(key)) continue;
      this.nodes.delete(key);
      this.bytes -= node.bytes;
      this.dropped(node);
    }
  }
}
