"use strict";
// Sorts and filters the environments, as the words behind "#" say: #sort=NAME&filter=TEXT, "-NAME" for the other way
// round. Without this script all of them stand there in the order of their numbers.
(() => {
  const table = document.getElementById("list");
  const body = table.tBodies[0];
  const heads = [...table.tHead.rows[0].cells];
  const filter = document.getElementById("filter");
  const shown = document.getElementById("shown");
  const order = new Intl.Collator("en", {numeric: true, sensitivity: "base"});
  const entries = [...body.rows].map((row) => ({
    row,
    part: document.getElementById("e" + row.id.slice(1)),
    keys: [...row.cells].map((cell) => cell.textContent.trim()),
    text: row.textContent.toLowerCase(),
  }));
  let sort = "";

  const showFilter = () => {
    const words = filter.value.toLowerCase().split(/\s+/).filter(Boolean);
    let count = 0;
    for (const entry of entries) {
      const fits = words.every((word) => entry.text.includes(word));
      entry.row.hidden = entry.part.hidden = !fits;
      count += fits;
    }
    shown.textContent = words.length === 0 ? "" : `${count} of ${entries.length} shown`;
  };

  // Empty cells come last either way.
  const showSort = () => {
    const descending = sort.startsWith("-");
    const column = heads.findIndex((head) => head.dataset.name === sort.replace("-", "").toLowerCase());
    heads.forEach((head, index) => {
      if (index === column) head.setAttribute("aria-sort", descending ? "descending" : "ascending");
      else head.removeAttribute("aria-sort");
    });
    if (column < 0) return;
    const compare = (a, b) => {
      const [x, y] = [a.keys[column], b.keys[column]];
      if (x === "" || y === "") return (x === "") - (y === "");
      return descending ? order.compare(y, x) : order.compare(x, y);
    };
    body.append(...[...entries].sort(compare).map((entry) => entry.row));
  };

  const remember = () => {
    const words = new URLSearchParams();
    if (sort) words.set("sort", sort);
    if (filter.value) words.set("filter", filter.value);
    history.replaceState(null, "", "#" + words);
  };

  const follow = () => {
    const target = decodeURIComponent(location.hash.slice(1));
    const part = document.getElementById(target);
    if (part instanceof HTMLDetailsElement) part.open = true;
    if (!target.includes("=")) return;
    const words = new URLSearchParams(location.hash.slice(1));
    sort = words.get("sort") ?? "";
    filter.value = words.get("filter") ?? "";
    showSort();
    showFilter();
  };

  heads.forEach((head) => {
    const button = document.createElement("button");
    button.type = "button";
    button.append(...head.childNodes);
    head.append(button);
    button.addEventListener("click", () => {
      const name = head.dataset.name;
      const first = head.classList.contains("number") && name !== "veid" ? "-" + name : name;
      const other = first.startsWith("-") ? name : "-" + name;
      sort = sort === first ? other : first;
      showSort();
      remember();
    });
  });
  filter.addEventListener("input", () => {
    showFilter();
    remember();
  });
  document.getElementById("tools").hidden = false;
  window.addEventListener("hashchange", follow);
  window.addEventListener("beforeprint", () => {
    for (const part of document.querySelectorAll("details")) part.open = true;
  });
  follow();
})();
