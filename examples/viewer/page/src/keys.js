const TURN = Math.PI / 36;
const MOVE = 0.05;
const ZOOM = 1.2;
const ARROWS = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1] };

/// What the keyboard does; arrows and zoom while the cloud has the focus, letters wherever nothing is being typed.
export function listenToKeys(canvas, { control, coloring, measuring, clip, aimAtMiddle }) {
  const keys = {
    Home: () => control.fit(),
    t: () => control.fit(0, -0.001, 1),
    m: () => measuring.toggle(),
    Escape: () => measuring.toggle(false),
    c: () => clip.toggle.click(),
    "?": () => document.getElementById("help").showModal(),
  };
  for (let i = 0; i < 6; ++i) keys[i + 1] = () => coloring.choose(i);
  const onCanvas = {
    "+": () => control.zoom(ZOOM),
    "=": () => control.zoom(ZOOM),
    "-": () => control.zoom(1 / ZOOM),
    Enter: aimAtMiddle,
  };

  addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey || event.target.closest("input, select, dialog")) return;
    const focused = event.target === canvas || event.target === document.body;
    const arrow = focused && ARROWS[event.key];
    const action = keys[event.key] ?? (focused && onCanvas[event.key]);
    if (arrow && event.shiftKey) control.move(MOVE * arrow[0], MOVE * arrow[1]);
    else if (arrow) control.turn(TURN * arrow[0], TURN * arrow[1]);
    else if (action) action();
    else return;
    event.preventDefault();
  });
}
