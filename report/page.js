"use strict";
// Shows a message of the ladder: its tree, and its octets as they came and as they left.
(() => {
    const data = JSON.parse(document.getElementById("data").textContent);
    const detail = document.getElementById("detail");
    const addressOctets = 6;
    const rowOctets = 16;
    let opener = null;

    function element(tag, className, text) {
        const made = document.createElement(tag);
        if (className) {
            made.className = className;
        }
        if (text !== undefined) {
            made.textContent = text;
        }
        return made;
    }

    // What is not to be seen, or moves what is, as its number.
    function plain(text) {
        return text.replace(
            /[\u0000-\u001f\u007f-\u009f\u00ad\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff\ufff0-\uffff]/g,
            (character) => "\\u" + character.charCodeAt(0).toString(16).padStart(4, "0"));
    }

    function octetsOf(hex) {
        return hex.match(/../g) || [];
    }

    // "10.0.0.5:5000" as the octets of address and port.
    function octetsOfEndpoint(text) {
        const [address, port] = text.split(":");
        const numbers = address.split(".").map(Number);
        numbers.push(port >> 8, port & 255);
        return numbers.map((number) => number.toString(16).padStart(2, "0"));
    }

    function marksOf(message) {
        const marks = new Map();
        for (const [offset, before, after] of message.changed) {
            const old = octetsOfEndpoint(before);
            octetsOfEndpoint(after).forEach((octet, i) => {
                marks.set(offset + i, {style: "isChanged", before: old[i], after: octet});
            });
        }
        for (const [offset] of message.left) {
            for (let i = 0; i < addressOctets; ++i) {
                marks.set(offset + i, {style: "isLeft"});
            }
        }
        return marks;
    }

    function rangeOf(node) {
        return node[2] < 0 ? null : [node[2] >> 3, (node[2] + Math.max(node[3], 1) - 1) >> 3];
    }

    function light(root, from, to, scroll) {
        for (const lit of root.querySelectorAll(".lit")) {
            lit.classList.remove("lit");
        }
        for (const octet of root.querySelectorAll(".octet")) {
            const at = Number(octet.dataset.at);
            octet.classList.toggle("lit", at >= from && at <= to);
        }
        const first = scroll && root.querySelector(".octet.lit");
        if (first) {
            first.scrollIntoView({block: "nearest"});
        }
    }

    function makeTree(node, marks, root) {
        const item = element("li");
        const range = rangeOf(node);
        const children = node.slice(4);
        const line = element(children.length ? "summary" : "span", children.length ? "" : "leaf");
        line.append(element("span", "label", data.strings[node[0]]));
        const value = data.strings[node[1]];
        if (value !== "") {
            line.append(" ", element("span", "value", plain(value)));
        }
        if (range) {
            item.dataset.from = range[0];
            item.dataset.to = range[1];
            line.addEventListener("mouseenter", () => light(root, range[0], range[1], false));
            line.addEventListener("focus", () => light(root, range[0], range[1], true));
            line.addEventListener("click", () => light(root, range[0], range[1], true));
            if (!children.length) {
                line.tabIndex = 0;
                for (let at = range[0]; at <= Math.min(range[1], range[0] + rowOctets); ++at) {
                    if (marks.has(at)) {
                        line.classList.add(marks.get(at).style);
                    }
                }
            }
        }
        if (children.length) {
            const fold = element("details");
            const list = element("ul");
            fold.open = true;
            list.append(...children.map((child) => makeTree(child, marks, root)));
            fold.append(line, list);
            item.append(fold);
        } else {
            item.append(line);
        }
        return item;
    }

    // The innermost node that holds the octet.
    function lightNode(root, at) {
        let best = null;
        for (const item of root.querySelectorAll(".tree li[data-from]")) {
            const from = Number(item.dataset.from);
            const to = Number(item.dataset.to);
            if (at >= from && at <= to && (!best || to - from <= best.size)) {
                best = {item, from, to, size: to - from};
            }
        }
        if (best) {
            light(root, best.from, best.to, false);
            const line = best.item.querySelector("summary, .leaf");
            line.classList.add("lit");
            line.scrollIntoView({block: "nearest"});
        }
    }

    function makeOctets(title, octets, marks, which, root) {
        const part = element("div");
        const grid = element("div", "octets");
        for (let row = 0; row < octets.length; row += rowOctets) {
            const line = element("span");
            for (let at = row; at < Math.min(row + rowOctets, octets.length); ++at) {
                const mark = marks.get(at);
                const shown = element("span", "octet", (mark && mark[which]) || octets[at]);
                shown.dataset.at = at;
                if (mark) {
                    shown.classList.add(mark.style);
                }
                line.append(shown);
            }
            grid.append(element("span", "offset", row.toString(16).padStart(4, "0")), line);
        }
        grid.addEventListener("click", (event) => {
            if (event.target.dataset.at !== undefined) {
                lightNode(root, Number(event.target.dataset.at));
            }
        });
        part.append(element("h3", "", title), grid);
        return part;
    }

    function close() {
        detail.hidden = true;
        detail.replaceChildren();
        document.body.classList.remove("split");
        if (opener) {
            opener.classList.remove("shown");
            opener.focus();
        }
        opener = null;
    }

    function show(origin) {
        const message = data.messages[Number(origin.dataset.message)];
        const marks = marksOf(message);
        const octets = octetsOf(message.octets);
        const button = element("button", "close", "✕");
        button.title = "Close (Escape)";
        button.addEventListener("click", close);
        const notes = element("ul", "findings");
        for (const [, before, after, path, short] of message.changed) {
            const note = element("li", "good", `${before} → ${after} in ${short}`);
            note.title = path;
            notes.append(note);
        }
        for (const [, address, cause, path, short] of message.left) {
            const note = element("li", "trouble", `${address} stays in ${short}: ${cause}`);
            note.title = path;
            notes.append(note);
        }
        const tree = element("ul", "tree");
        if (message.tree) {
            tree.append(makeTree(message.tree, marks, detail));
        }
        const beside = element("div", "beside");
        beside.append(makeOctets(message.changed.length ? "Octets as they came" : "Octets",
            octets, marks, "before", detail));
        if (message.changed.length) {
            beside.append(makeOctets("Octets as they left", octets, marks, "after", detail));
        }
        const pair = element("div", "pair");
        pair.append(tree, beside);
        detail.replaceChildren(button, element("h2", "", message.title), notes);
        if (message.error) {
            detail.append(element("p", "trouble", message.error));
        }
        detail.append(pair);
        if (opener) {
            opener.classList.remove("shown");
        }
        opener = origin;
        opener.classList.add("shown");
        detail.hidden = false;
        detail.scrollTop = 0;
        document.body.classList.add("split");
        opener.scrollIntoView({block: "nearest"});
    }

    // The message `step` further among those that are not folded away.
    function move(step) {
        const all = [...document.querySelectorAll(".message")].filter(
            (message) => !message.closest("details:not([open])"));
        const at = all.indexOf(document.activeElement);
        const next = all[at < 0 ? 0 : at + step];
        if (next) {
            next.focus();
            if (!detail.hidden) {
                show(next);
            }
        }
    }

    document.addEventListener("click", (event) => {
        const message = event.target.closest(".message");
        if (message) {
            message.focus();
            show(message);
        }
    });
    document.addEventListener("keydown", (event) => {
        const message = event.target.closest && event.target.closest(".message");
        if (event.key === "Escape") {
            close();
        } else if (message && (event.key === "Enter" || event.key === " ")) {
            show(message);
        } else if (event.key === "j" || (message && event.key === "ArrowDown")) {
            move(1);
        } else if (event.key === "k" || (message && event.key === "ArrowUp")) {
            move(-1);
        } else {
            return;
        }
        event.preventDefault();
    });
    // A link to a call opens it.
    function openTarget() {
        const target = location.hash && document.getElementById(location.hash.slice(1));
        if (target && target.tagName === "DETAILS") {
            target.open = true;
        }
    }
    window.addEventListener("hashchange", openTarget);
    openTarget();
})();
