// All tests of the viewer, one after another: each wants the machine for itself.
import "./server.test.mjs";
import "./page.test.mjs";
