// Renews the page every few seconds, and only what has changed of it, so that
// nothing flickers and a selection stays.
"use strict";

const everyMs = 3000;
const main = document.querySelector("main");
const lost = document.getElementById("lost");

function renewAttributes(old, fresh) {
  for (const name of old.getAttributeNames()) {
    if (!fresh.hasAttribute(name)) old.removeAttribute(name);
  }
  for (const name of fresh.getAttributeNames()) {
    const value = fresh.getAttribute(name);
    if (old.getAttribute(name) !== value) old.setAttribute(name, value);
  }
}

function renew(old, fresh) {
  if (old.nodeName !== fresh.nodeName) {
    old.replaceWith(fresh);
    return;
  }
  if (old.nodeType === Node.TEXT_NODE) {
    if (old.data !== fresh.data) old.data = fresh.data;
    return;
  }
  if (old.nodeType === Node.ELEMENT_NODE) renewAttributes(old, fresh);
  renewChildren(old, fresh);
}

function renewChildren(old, fresh) {
  const coming = [...fresh.childNodes];
  while (old.childNodes.length > coming.length) old.lastChild.remove();
  coming.forEach((child, i) => {
    if (i < old.childNodes.length) renew(old.childNodes[i], child);
    else old.append(child);
  });
}

async function update() {
  try {
    const answer = await fetch("main.html", { cache: "no-store" });
    if (!answer.ok) throw new Error(answer.statusText);
    const fresh = document.createElement("template");
    fresh.innerHTML = await answer.text();
    renewChildren(main, fresh.content);
    document.title = main.firstElementChild.dataset.title;
    lost.hidden = true;
  } catch {
    lost.hidden = false;
  }
}

setInterval(() => document.hidden || update(), everyMs);
document.addEventListener("visibilitychange", () => document.hidden || update());
