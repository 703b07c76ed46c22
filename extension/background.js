// Reports every whole media file the browser receives (its address, the page
// that asked for it, its size and type) to Vidorra 2 through the program's
// native messaging host. Nothing else leaves the browser.
"use strict";

const api = globalThis.browser ?? globalThis.chrome;
const HOST = "org.vidorra2.sniffer";

// Pieces of a stream and the playlists that list them are no file to keep.
const STREAM_TYPES = new Set([
    "video/mp2t", "video/iso.segment", "audio/mpegurl", "audio/x-mpegurl",
    "application/vnd.apple.mpegurl", "application/x-mpegurl", "application/dash+xml",
]);
const STREAM_PATH = /\.(ts|m4s|m3u8|mpd)$/i;
// Servers that send media as plain bytes give it away by its name only.
const MEDIA_PATH = /\.(mp4|m4v|m4a|mov|webm|mkv|flv|avi|wmv|3gp|ogv|ogg|oga|opus|mp3|aac|flac|wav)$/i;

// A player asks for the same file in many ranges: one report per file is
// enough for a while. After that the file is reported again, so a Vidorra 2
// started later still hears of it when it plays once more.
const REPEAT_AFTER_MS = 30000;
const sent = new Map(); // url + size -> when it was reported
let port = null;
let answered = false; // the host answered on this port

// What the toolbar button says: a red "!" and what to do, or nothing to do.
const ALL_SITES = { origins: ["<all_urls>"] };
const PROBLEMS = {
    sites: "Vidorra 2 Sniffer may not read the sites you visit, so it sees no video. " +
        "Allow it on all sites in its permissions (Firefox: about:addons, Vidorra 2 Sniffer, Permissions), " +
        "then reload the page.",
    host: "Vidorra 2 Sniffer cannot reach Vidorra 2. In Vidorra 2, choose \"Connect the browser add-on\" " +
        "in the help menu, then restart the browser.",
};
const FINE = "Vidorra 2 Sniffer: the videos this browser plays go to Vidorra 2's list.";
let sitesAllowed = true;

function show(problem) {
    api.action.setBadgeBackgroundColor({ color: "#d00000" });
    api.action.setBadgeText({ text: problem ? "!" : "" });
    api.action.setTitle({ title: problem ? PROBLEMS[problem] : FINE });
}

function header(details, name) {
    const found = (details.responseHeaders || []).find((h) => h.name.toLowerCase() === name);
    return found ? (found.value || "").trim() : "";
}

function mediaType(contentType, path) {
    const type = contentType.split(";")[0].trim().toLowerCase();
    if (STREAM_TYPES.has(type) || STREAM_PATH.test(path))
        return "";
    if (type.startsWith("video/") || type.startsWith("audio/"))
        return type;
    return type === "application/octet-stream" && MEDIA_PATH.test(path) ? type : "";
}

// The whole file's size: the total of a Content-Range, else the length of a
// complete (200) answer.
function mediaSize(details) {
    const range = /^bytes\s+(?:\d+-\d+|\*)\/(\d+)$/i.exec(header(details, "content-range"));
    if (range)
        return range[1];
    const length = header(details, "content-length");
    return details.statusCode === 200 && /^\d+$/.test(length) ? length : "";
}

function connect() {
    port = api.runtime.connectNative(HOST);
    answered = false;
    port.onMessage.addListener((message) => {
        if (message && message.host) {
            answered = true;
            show(sitesAllowed ? "" : "sites");
        }
    });
    port.onDisconnect.addListener((gone) => {
        const error = gone.error || api.runtime.lastError;
        // Missing or refused before it answered: the button says so. Ended
        // later: connect again next time.
        if (!answered) {
            console.error("Vidorra 2 Sniffer: no native messaging host " + HOST + ":", error ? error.message : "it ended");
            show("host");
        }
        port = null;
    });
    // The host answers, and notes in the program's log a site permission taken away.
    port.postMessage({ hello: api.runtime.getManifest().version, sites: sitesAllowed });
}

function send(message) {
    if (!port)
        connect();
    port.postMessage(message);
}

// At every start, and whenever the user changes the add-on's permissions.
async function check() {
    sitesAllowed = await api.permissions.contains(ALL_SITES);
    if (port)
        port.disconnect();
    connect();
}

function onResponseStarted(details) {
    if (details.statusCode !== 200 && details.statusCode !== 206)
        return;
    const url = new URL(details.url);
    const type = mediaType(header(details, "content-type"), url.pathname);
    const size = mediaSize(details);
    if (!type || !/^[1-9]\d*$/.test(size))
        return;
    // The whole address: an https file is fetched over https by the program too.
    const address = details.url;
    const key = address + " " + size;
    const now = Date.now();
    if (now - (sent.get(key) ?? -Infinity) < REPEAT_AFTER_MS)
        return;
    sent.set(key, now);
    if (sent.size > 1000)
        sent.clear();
    const source = details.documentUrl || details.originUrl || details.initiator || "";
    send({ url: address, source: source, size: size, type: type });
}

api.webRequest.onResponseStarted.addListener(
    onResponseStarted,
    { urls: ["http://*/*", "https://*/*"], types: ["media", "object", "xmlhttprequest", "other"] },
    ["responseHeaders"]);
api.permissions.onAdded.addListener(check);
api.permissions.onRemoved.addListener(check);
// Firefox starts an event page with the browser only for a listener of these.
api.runtime.onStartup.addListener(() => {});
api.runtime.onInstalled.addListener(() => {});
check();
