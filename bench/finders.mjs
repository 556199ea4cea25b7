// finders.mjs PACKAGE FOLDER PORT: finds the icon of each link that it reads from its input with a
// package installed in FOLDER, and writes a line of JSON for each; a last line is about the whole run.
// Every connection, whatever it is for, is led to PORT on loopback.
import { createRequire } from "node:module";
import net from "node:net";
import { pathToFileURL } from "node:url";
import { createInterface } from "node:readline";

const SITES = "example.com";

const [name, folder, port] = process.argv.slice(2);
const require = createRequire(`${folder}/package.json`);
const strangers = new Set();

const connect = net.Socket.prototype.connect;
net.Socket.prototype.connect = function (...given) {
  const settled = Array.isArray(given[0]) ? given[0] : net._normalizeArgs(given);
  if (!settled[0].host?.endsWith(SITES)) strangers.add(settled[0].host);
  Object.assign(settled[0], { host: "127.0.0.1", port: Number(port) });
  return connect.call(this, settled);
};

async function text(url) {
  return (await fetch(url)).text();
}

async function bytes(url) {
  const answer = await fetch(url);
  const body = await answer.arrayBuffer();
  if (!answer.ok) throw new Error(`status ${answer.status}`);
  return body;
}

const finders = {
  "page-icon": () => {
    const find = require("page-icon");
    return async (link) => (await find(link))?.source;
  },

  "metascraper-logo-favicon": () => {
    // Without Google's service, as the others.
    const scrape = require("metascraper")([require("metascraper-logo-favicon")({ google: false })]);
    return async (link) => {
      const { logo } = await scrape({ url: link, html: await text(link) });
      if (logo) await bytes(logo);
      return logo;
    };
  },

  "parse-favicon": async () => {
    const { parseFavicon } = await import(pathToFileURL(require.resolve("parse-favicon")));
    const width = ({ size }) =>
      size === "any" ? Infinity : Math.max(0, ...[size ?? []].flat().map((one) => one.width));
    return async (link) => {
      const icons = [];
      await new Promise((complete, error) =>
        parseFavicon(link, text, bytes)
          .subscribe({ next: (icon) => icons.push(icon), complete, error }));
      icons.sort((one, other) => width(other) - width(one));
      return icons.length > 0 ? new URL(icons[0].url, link).href : undefined;
    };
  },
};

function milliseconds(since) {
  const { user, system } = process.cpuUsage(since);
  return (user + system) / 1000;
}

const find = await finders[name]();
for await (const link of createInterface({ input: process.stdin })) {
  const [begin, used] = [performance.now(), process.cpuUsage()];
  let icon = null;
  let error;
  try {
    icon = (await find(link)) ?? null;
  } catch (failure) {
    error = String(failure);
  }
  const ms = performance.now() - begin;
  console.log(JSON.stringify({ link, icon, error, ms, processorMs: milliseconds(used) }));
}
console.log(JSON.stringify({
  megabytes: process.resourceUsage().maxRSS / 1024,
  strangers: [...strangers],
}));
process.exit();
