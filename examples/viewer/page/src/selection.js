import { post, Refusal, sayGoodbye } from "./api.js";

const RETRY_MS = 1000;

/// What the server selects for this page's camera. Asks one question at a time, always the latest, so that
/// neither the page nor the server falls behind.
export class Selection {
  /// @param changed  called when the selection is another one.
  /// @param failed   called with the reason when the server does not answer, and with nothing when it does again.
  constructor(changed, failed) {
    this.keys = new Set(); // in the order of selection, as far as it is known
    this.points = 0;
    this.changed = changed;
    this.failed = failed;
    this.client = null;
    this.seen = 0;
    this.asked = null;
    this.busy = false;
    this.down = false; // the server did not answer the last time
    addEventListener("pagehide", () => {
      if (this.client) sayGoodbye(this.client);
      this.client = null;
    });
  }

  /// @param question  camera, budget and minSize; nothing happens when they are those asked last.
  ask(question) {
    const text = JSON.stringify(question);
    if (text === this.asked) return;
    this.asked = text;
    this.next = question;
    if (!this.busy) this.send();
  }

  async send() {
    this.busy = true;
    while (this.next) {
      const question = this.next;
      this.next = null;
      try {
        this.client ??= (await post("/api/clients")).client;
        this.apply(await post("/api/frame", { client: this.client, seen: this.seen, ...question }));
        if (this.down) this.failed(null);
        this.down = false;
      } catch (error) {
        const forgotten = error instanceof Refusal && error.status === 410;
        if (forgotten) this.client = null;
        else {
          this.down = true;
          this.failed(error instanceof Refusal ? error.message : "The server does not answer.");
          await new Promise((resolve) => setTimeout(resolve, RETRY_MS));
        }
        this.next ??= question;
      }
    }
    this.busy = false;
  }

  apply(answer) {
    if (answer.whole) this.keys.clear();
    for (const key of answer.left) this.keys.delete(key);
    for (const key of answer.entered) this.keys.add(key);
    this.seen = answer.answer;
    this.points = answer.points;
    if (answer.whole || answer.entered.length > 0 || answer.left.length > 0) this.changed();
  }
}
