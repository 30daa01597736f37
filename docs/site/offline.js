// SPDX-License-Identifier: Apache-2.0
// The search of a site that is opened from a file. Browsers neither fetch its index there nor start its
// worker, so that the index comes as a script, and the worker runs in a frame.
if (location.protocol === "file:") {
  window.Worker = class extends EventTarget {
    constructor(url) {
      super();
      const frame = document.createElement("iframe");
      frame.hidden = true;
      document.body.append(frame);
      const inside = frame.contentWindow;
      inside.postMessage = (data) => this.dispatchEvent(new MessageEvent("message", { data }));
      this.loaded = new Promise((done) => {
        const script = inside.document.createElement("script");
        script.src = new URL(url, location.href);
        script.onload = () => done(inside);
        inside.document.head.append(script);
      });
    }
    postMessage(data) {
      this.loaded.then((inside) => inside.dispatchEvent(new MessageEvent("message", { data })));
    }
  };
  const script = document.createElement("script");
  script.src = document.currentScript.dataset.index; // sets 'search_index'
  window.__search = { index: new Promise((done) => { script.onload = () => done(window.search_index); }) };
  document.head.append(script);
}
