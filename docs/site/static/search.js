// The search: results below the field while one types, and all of them on the search page. `pages`
// holds what can be found, as [name, title of its page, URL, text, kind]; the engine is lunr.

const field = document.querySelector(".sidebar-search");
const root = document.getElementById("documentation_options").dataset.url_root;
const separate = (text) =>
    text.replace(/([a-z0-9])([A-Z])/g, "$1 $2").replace(/[_:.\-\/"()]+/g, " ");
let engine;

function find(words) {
    engine ??= lunr(function () {
        this.pipeline.remove(lunr.stopWordFilter);
        this.searchPipeline.remove(lunr.stopWordFilter);
        this.field("name", { boost: 8 });
        this.field("parts", { boost: 5 });  // connectTimeout is found as "timeout", too
        this.field("text");
        this.ref("id");
        window.pages.forEach(([name, title, url, text, kind], id) => {
            // The guide tells more than a name that is the same word, and both more than figures.
            const boost = (kind === "section" ? 2 : 1) *
                (/^(reference|service)|c-interface|python/.test(url) ? 0.5
                    : /guide|socketio|index/.test(url) ? 1.5 : 0.3);
            this.add({ id, name, parts: `${separate(name)} ${kind === "section" ? title : ""}`,
                text: `${text} ${separate(text)}` }, { boost });
        });
    });
    const terms = wordsOf(words), typed = words.trim().toLowerCase();
    const score = (entry) => 100 * terms.filter((term) => has(entry, term)).length +
        50 * has(entry, typed) + 1000 * isNamed(entry, words);
    return engine.query((query) => {
        for (const term of new Set([...terms, ...typed.split(/\s+/).filter(isTelling)])) {
            query.term(term, { boost: 10 });
            query.term(term,
                { boost: 4, usePipeline: false, wildcard: lunr.Query.wildcard.TRAILING });
        }
    }).map((found) =>
        ({ entry: window.pages[found.ref], score: found.score + score(window.pages[found.ref]) }))
        .sort((a, b) => b.score - a.score).map(({ entry }) => entry);
}

// Without those that stand everywhere, unless there are no others.
function wordsOf(text) {
    const all = separate(text).toLowerCase().split(/\s+/).filter(Boolean);
    const telling = all.filter(isTelling);
    return telling.length ? telling : all;
}

const isTelling = (word) => lunr.stopWordFilter(new lunr.Token(word, {})) !== undefined;
const has = ([name, title, , text], term) =>
    `${name} ${title} ${text}`.toLowerCase().includes(term);
// A function, a class, or a constant that somebody copied from a program.
const isNamed = ([name, , , , kind], words) => kind === "name" && /[A-Z_:]/.test(words) &&
    name === words.trim().replace(/^.*::|\(.*$/g, "");

function marked(text, words) {
    const terms = wordsOf(words).map((term) => term.replace(/[.*+?^${}()|[\]\\]/g, "\\$&"));
    const out = document.createDocumentFragment();
    text.split(new RegExp(`(${terms.join("|")})`, "i")).forEach((part, at) => {
        out.append(at % 2
            ? Object.assign(document.createElement("mark"), { textContent: part }) : part);
    });
    return out;
}

function shown(words, most) {
    const list = document.createElement("ul");
    list.className = "found";
    const found = words.trim() ? find(words) : [];
    for (const [name, title, url, text] of found.slice(0, most)) {
        const first = Math.max(0, text.toLowerCase().indexOf(wordsOf(words)[0]) - 50);
        const link = Object.assign(document.createElement("a"), { href: root + url });
        const parts = [["strong", name], ["small", name === title ? "" : title],
            ["span", (first ? "… " : "") + text.slice(first, first + 160)]];
        for (const [tag, words_] of parts) {
            const element = document.createElement(tag);
            element.append(marked(words_, words));
            link.append(element);
        }
        list.append(Object.assign(document.createElement("li"), {}));
        list.lastChild.append(link);
    }
    if (words.trim() && !found.length)
        list.append(Object.assign(document.createElement("li"), { textContent: "Nothing found." }));
    return list;
}

if (field) {
    const box = document.getElementById("searchbox");
    field.autocomplete = "off";
    field.placeholder = "Search  ( / )";
    field.addEventListener("input",
        () => box.replaceChildren(...(field.value.trim() ? [shown(field.value, 12)] : [])));
    document.addEventListener("click", (event) =>
        event.target.closest(".sidebar-search-container, #searchbox") || box.replaceChildren());
    document.addEventListener("keydown", (event) => {
        const links = [...box.querySelectorAll("a")], at = links.indexOf(document.activeElement);
        if (event.key === "Escape") box.replaceChildren();
        else if (event.key === "/" && !/INPUT|TEXTAREA/.test(document.activeElement.tagName))
            field.focus(), event.preventDefault();
        else if (links.length && (event.key === "ArrowDown" || event.key === "ArrowUp")) {
            (links[at + (event.key === "ArrowDown" ? 1 : -1)] ?? field).focus();
            event.preventDefault();
        }
    });
}

const page = document.getElementById("found");
if (page) {
    field.value = new URLSearchParams(location.search).get("q") ?? "";
    page.append(shown(field.value, 60));
}
