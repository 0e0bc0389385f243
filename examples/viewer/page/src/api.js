/// What the server answers that is no success.
export class Refusal extends Error {
  constructor(status, text) {
    super(text);
    this.status = status;
  }
}

async function answerOf(response) {
  if (response.ok) return response;
  const body = await response.json().catch(() => ({}));
  throw new Refusal(response.status, body.error ?? response.statusText);
}

export async function getJson(path) {
  return (await answerOf(await fetch(path))).json();
}

export async function getBytes(path) {
  return (await answerOf(await fetch(path))).arrayBuffer();
}

export async function post(path, message = {}) {
  const body = JSON.stringify(message);
  return (await answerOf(await fetch(path, { method: "POST", body }))).json();
}

/// Tells the server that this page is gone, while it goes.
export function sayGoodbye(client) {
  navigator.sendBeacon("/api/clients/close", JSON.stringify({ client }));
}
