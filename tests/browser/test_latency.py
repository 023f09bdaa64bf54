"""A picture is on the screen soon after its arrival, also when it is the only one in that second.

One picture a second is the hard case: a viewer that shows a picture only when the next one comes is a second late. On a
machine that does nothing else it takes less than 100 ms: MORROW_LATENCY_MS=100 asks for that.
"""

import os
import statistics

import case
from feeder import Feeder
from pictures import NEW_CONTEXT_JS, READ_CODE_JS, coded_jpeg

LIMIT_MS = int(os.environ.get("MORROW_LATENCY_MS", "800"))
WARM_UP = 2  # pictures
MEASURED = 5  # pictures
# The limit holds for our work, not for a machine that is busy with something else: of so many rounds one must be clean.
ROUNDS = 3

# Both watchers append to window.seen, when the picture changes: its code, the moment in Unix milliseconds, and the
# delay since the arrival at the host where the page states one.
WATCH_PAGE_JS = READ_CODE_JS + NEW_CONTEXT_JS + """
const tile = document.querySelector('[data-name="slow"]');
const canvas = tile.querySelector("canvas");
const context = newContext();
window.seen = [];
new MutationObserver(() => {
    // The picture itself tells which one is on the canvas; the page's word for when is data-drawn.
    const drawn = Number(tile.dataset.drawn);
    window.seen.push([readCode(canvas, context), drawn, drawn - Number(tile.dataset.arrived)]);
}).observe(tile, { attributeFilter: ["data-drawn"] });
"""
WATCH_STREAM_JS = READ_CODE_JS + NEW_CONTEXT_JS + """
const image = new Image();
const context = newContext();
const turn = new MessageChannel();
window.seen = [];
let last = null;
document.body.append(image);
image.src = "/live/slow";
// The eye of the test: looks at the picture again and again, without waiting for the next turn of the screen.
turn.port1.onmessage = () => {
    if (image.naturalWidth > 0) {
        const code = readCode(image, context);
        if (code !== null && code !== last) {
            last = code;
            window.seen.push([code, performance.timeOrigin + performance.now(), null]);
        }
    }
    setTimeout(() => turn.port2.postMessage(0), 1);
};
turn.port2.postMessage(0);
"""


class LatencyTest(case.BrowserCase):
    def setUp(self):
        super().setUp()
        self.host = self.make_host()
        self.host.write_cameras(["slow"], "secret")
        self.host.add_phones(["slow"], "secret")
        self.host.start()
        # No code comes twice within a measurement, so that a code names one moment of sending.
        self.phone = Feeder(self.host.port, "slow", "secret", [coded_jpeg(n) for n in range(1, 65)], rate=1)
        self.browser = self.make_browser()

    def measure(self, what):
        """The delays of MEASURED pictures in ms: from sending to the screen, and as the page itself states them."""
        browser = self.browser
        browser.run("window.seen.length = 0")
        count = WARM_UP + MEASURED
        seen = browser.wait(f"{count} pictures on {what}", lambda: (
            (seen := browser.run("return window.seen")) and len(seen) >= count and seen), seconds=count + 20)
        codes = [code for code, _, _ in seen]
        self.assertNotIn(None, codes, f"{what} shows something else")
        self.assertEqual(codes, list(range(codes[0], codes[0] + len(codes))), f"{what} skips or repeats pictures")
        measured = seen[WARM_UP:count]
        from_sending = [moment - self.phone.sent[code - 1] * 1000 for code, moment, _ in measured]
        stated = [delay for _, _, delay in measured if delay is not None]
        for name, delays in (("sent to drawn", from_sending), ("arrived to drawn, as stated", stated)):
            if not delays:
                continue
            print(f"{what}: {name}: median {statistics.median(delays):.1f} ms, max {max(delays):.1f} ms", flush=True)
        self.assertGreater(min(from_sending), 0, "a picture cannot be on the screen before it was sent")
        return from_sending, stated

    def assert_prompt(self, what):
        for _ in range(ROUNDS):
            from_sending, stated = self.measure(what)
            if max(from_sending + stated) < LIMIT_MS:
                return
        self.fail(f"{what}: a picture took {max(from_sending + stated):.0f} ms to the screen")

    def test_page_and_stream(self):
        with self.phone:
            self.browser.open(self.host.address())
            self.browser.wait_state("slow", "live")
            self.browser.run(WATCH_PAGE_JS)
            self.assert_prompt("the page")

            self.browser.open(self.host.address("/health"))  # any page of the host without pictures of its own
            self.browser.run(WATCH_STREAM_JS)
            self.assert_prompt("/live/slow")
        self.end(self.host, self.browser)


if __name__ == "__main__":
    case.main()
