"use strict";
(() => {
  const data = JSON.parse(document.getElementById("data").textContent);
  const isDiff = Array.isArray(data.settings);
  const main = document.getElementById("main");
  const shownAtOnce = 200;
  // As wide as there is room, so that letters keep their size.
  const drawingWidth = Math.max(300, Math.min(800, main.clientWidth - 40));
  const viewBox = "0 0 " + drawingWidth + " 280";

  // Elements are made with texts only: what a message or rule is called is never markup.
  function make(name, attributes, ...children) {
    const isDrawing = ["svg", "g", "line", "path", "rect", "text", "title"].includes(name);
    const element = isDrawing
      ? document.createElementNS("http://www.w3.org/2000/svg", name)
      : document.createElement(name);
    for (const [key, value] of Object.entries(attributes || {})) {
      if (value !== null && value !== undefined) {
        element.setAttribute(key, value);
      }
    }
    element.append(...children.filter((child) => child !== null));
    return element;
  }

  function whole(value) {
    return Number(value).toLocaleString("en");
  }

  function share(part, all) {
    return (all === 0 ? "0" : (100 * part / all).toFixed(2)) + "\u00a0%";
  }

  function score(value) {
    return value === null ? "–" : String(value);
  }

  function section(id, title, ...content) {
    document.getElementById("sections").append(make("li", {}, make("a", {href: "#" + id}, title)));
    const found = make("section", {id, "aria-labelledby": id + "-title"},
      make("h2", {id: id + "-title"}, title), ...content);
    main.append(found);
    return found;
  }

  function tiles(entries) {
    return make("dl", {class: "tiles"}, ...entries.map(([name, value, note, kind]) =>
      make("div", {}, make("dt", {}, name),
        make("dd", {class: kind || null}, value, note ? make("small", {}, note) : null))));
  }

  // A table that is sorted by its heads, and shows so many rows until more are asked for.
  // columns: {title, value, text, number, node}; value is what rows are sorted by.
  function table(caption, columns, rows, sorted) {
    const body = make("tbody");
    const heads = columns.map((column) => make("th",
      {scope: "col", class: column.number ? "number" : null},
      make("button", {type: "button"}, column.title)));
    const more = make("button", {type: "button", class: "more"}, "Show all rows");
    let order = sorted || {column: 0, isRising: true};
    let most = shownAtOnce;
    let chosen = rows;

    function compare(one, two) {
      const value = columns[order.column].value;
      const a = value(one);
      const b = value(two);
      const result = typeof a === "string" ? a.localeCompare(b) : a - b;
      return order.isRising ? result : -result;
    }

    function show() {
      heads.forEach((head, each) => {
        head.setAttribute("aria-sort",
          each !== order.column ? "none" : order.isRising ? "ascending" : "descending");
      });
      const ordered = [...chosen].sort(compare).slice(0, most);
      body.replaceChildren(...ordered.map((row) => make("tr", {}, ...columns.map((column) =>
        make("td", {class: column.number ? "number" : column.class || null},
          ...(column.node ? column.node(row)
            : [column.text ? column.text(row) : String(column.value(row))]))))));
      more.hidden = chosen.length <= most;
      more.textContent = "Show all " + whole(chosen.length) + " rows";
    }

    heads.forEach((head, each) => {
      head.firstChild.addEventListener("click", () => {
        order = order.column === each
          ? {column: each, isRising: !order.isRising}
          : {column: each, isRising: !columns[each].number};
        show();
      });
    });
    more.addEventListener("click", () => {
      most = Infinity;
      show();
    });
    show();
    return {
      node: make("div", {},
        make("div", {class: "scroll", tabindex: "0", role: "region", "aria-label": caption},
          make("table", {}, make("caption", {}, caption),
            make("thead", {}, make("tr", {}, ...heads)), body)), more),
      choose(test) {
        chosen = rows.filter(test);
        show();
        return chosen.length;
      },
    };
  }

  function nameCell(row) {
    return [row.name, make("small", {},
      [row.kind, row.languages !== "DEFAULT" ? row.languages : "", row.description || ""]
        .filter((part) => part !== "").join(" · "))];
  }

  function messageName(row) {
    return row.path + (row.number > 0 ? " #" + row.number : "");
  }

  // What a threshold gives: the last point that is not above it.
  function pointAt(curve, threshold) {
    let found = curve[0];
    for (const point of curve) {
      if (point.threshold <= threshold) {
        found = point;
      }
    }
    return found;
  }

  // Where something is drawn: x by threshold, y by share.
  function frame(low, high) {
    const box = {left: 48, right: drawingWidth - 12, top: 12, bottom: 252};
    const range = high - low || 1;
    return {
      box,
      x: (value) => box.left + (box.right - box.left) *
        (Math.min(Math.max(value, low), high) - low) / range,
      y: (part) => box.bottom - (box.bottom - box.top) * part,
    };
  }

  function axes(drawing, low, high) {
    const {box, x, y} = drawing;
    const parts = [];
    for (const part of [0, 0.25, 0.5, 0.75, 1]) {
      parts.push(make("line",
        {class: "axis", x1: box.left, x2: box.right, y1: y(part), y2: y(part)}));
      parts.push(make("text", {x: box.left - 6, y: y(part) + 4, "text-anchor": "end"},
        Math.round(100 * part) + " %"));
    }
    const step = Math.max(1, Math.ceil((high - low) / (drawingWidth / 75)));
    for (let value = Math.ceil(low / step) * step; value <= high; value += step) {
      parts.push(make("text", {x: x(value), y: box.bottom + 18, "text-anchor": "middle"},
        String(value)));
    }
    return parts;
  }

  function curvePath(drawing, curve, all, key, kind) {
    let path = "";
    for (const point of curve) {
      const at = drawing.x(point.threshold).toFixed(1);
      const height = drawing.y(all === 0 ? 0 : point[key] / all).toFixed(1);
      path += path === "" ? "M" + at + " " + height : "H" + at + "V" + height;
    }
    return make("path", {class: kind, d: path});
  }

  function range(summary) {
    const histogram = summary.histogram;
    return [histogram.first, histogram.first + histogram.width * histogram.steps];
  }

  function curveSection(summaries) {
    const [low, high] = range(summaries[summaries.length - 1]);
    const drawing = frame(low, high);
    const parts = axes(drawing, low, high);
    summaries.forEach((summary, each) => {
      const before = each + 1 < summaries.length ? " before" : "";
      parts.push(curvePath(drawing, summary.curve, summary.toBeUnder, "falsePositives",
        "under" + before));
      parts.push(curvePath(drawing, summary.curve, summary.toBeOver, "misses", "over" + before));
    });
    const last = summaries[summaries.length - 1];
    const mark = make("line", {class: "mark", y1: drawing.box.top, y2: drawing.box.bottom});
    parts.push(mark);
    const slider = make("input", {type: "range", id: "threshold", min: low, max: high, step: 0.1,
      value: last.threshold});
    const told = make("output", {for: "threshold", "aria-live": "polite"});
    function move() {
      const threshold = Number(slider.value);
      mark.setAttribute("x1", drawing.x(threshold));
      mark.setAttribute("x2", drawing.x(threshold));
      told.textContent = summaries.map((summary, each) => {
        const point = pointAt(summary.curve, threshold);
        return (summaries.length > 1 ? (each === 0 ? "before: " : "; after: ") : "") +
          "false positives " + share(point.falsePositives, summary.toBeUnder) +
          ", missed " + share(point.misses, summary.toBeOver);
      }).join("");
      slider.setAttribute("aria-valuetext", threshold + ": " + told.textContent);
    }
    slider.addEventListener("input", move);
    move();
    const rows = last.curve;
    const asTable = table("The curve as a table", [
      {title: "Threshold", value: (row) => row.threshold, number: true},
      {title: "False positives", value: (row) => row.falsePositives, number: true,
        text: (row) => share(row.falsePositives, last.toBeUnder)},
      {title: "Missed", value: (row) => row.misses, number: true,
        text: (row) => share(row.misses, last.toBeOver)},
    ], rows);
    section("curve", "What a threshold would do",
      make("svg", {viewBox, role: "img",
        "aria-label": "False positives and misses by threshold; the same numbers are in the table below"},
        ...parts),
      make("p", {class: "key"}, make("span", {class: "k-under"}, "false positives"),
        make("span", {class: "k-over"}, "missed"), make("span", {class: "k-mark"}, "threshold"),
        summaries.length > 1 ? "dashed: before" : ""),
      make("div", {class: "tools"},
        make("label", {for: "threshold"}, "Threshold"), slider),
      make("p", {}, told),
      make("details", {}, make("summary", {}, "The curve as a table"), asTable.node));
  }

  function histogramSection(summary) {
    const [low, high] = range(summary);
    const drawing = frame(low, high);
    const {box} = drawing;
    const middle = (box.top + box.bottom) / 2;
    const steps = summary.histogram.steps;
    const counts = {under: new Array(steps).fill(0), over: new Array(steps).fill(0)};
    for (const each of summary.classes) {
      each.histogram.forEach((count, step) => {
        counts[each.toBeOver ? "over" : "under"][step] += count;
      });
    }
    // Shares of each sort, by square roots: a few messages are to be seen beside very many.
    const part = (kind, step) => {
      const all = kind === "over" ? summary.toBeOver : summary.toBeUnder;
      return all === 0 ? 0 : Math.sqrt(counts[kind][step] / all);
    };
    const most = Math.max(0.01, ...counts.under.map((_, step) => part("under", step)),
      ...counts.over.map((_, step) => part("over", step)));
    const width = (box.right - box.left) / steps;
    const parts = [];
    for (const kind of ["under", "over"]) {
      for (let step = 0; step < steps; ++step) {
        if (counts[kind][step] > 0) {
          const height = Math.max(1, (middle - box.top) * part(kind, step) / most);
          const start = summary.histogram.first + step * summary.histogram.width;
          parts.push(make("rect", {class: "fill-" + kind,
            x: (box.left + step * width + 0.5).toFixed(1), width: Math.max(width - 1, 1).toFixed(1),
            y: (kind === "under" ? middle - height : middle).toFixed(1), height: height.toFixed(1)},
            make("title", {}, start.toFixed(2) + ": " + whole(counts[kind][step]) + " to be " + kind)));
        }
      }
    }
    const step = Math.max(1, Math.ceil((high - low) / (drawingWidth / 75)));
    for (let value = Math.ceil(low / step) * step; value <= high; value += step) {
      parts.push(make("text", {x: drawing.x(value), y: box.bottom + 18, "text-anchor": "middle"},
        String(value)));
    }
    parts.push(make("line", {class: "axis", x1: box.left, x2: box.right, y1: middle, y2: middle}));
    const at = drawing.x(summary.threshold);
    parts.push(make("line", {class: "mark", x1: at, x2: at, y1: box.top, y2: box.bottom}));
    const classes = table("Classes of messages", [
      {title: "Class", value: (row) => row.name, class: "name"},
      {title: "To be", value: (row) => row.toBeOver ? "over" : "under"},
      {title: "Messages", value: (row) => row.messages, number: true, text: (row) => whole(row.messages)},
      {title: "Over", value: (row) => row.over, number: true,
        text: (row) => whole(row.over) + " (" + share(row.over, row.messages) + ")"},
      {title: "Not read", value: (row) => row.failed, number: true},
      {title: "ms each", value: (row) => row.meanMilliseconds, number: true,
        text: (row) => row.meanMilliseconds.toFixed(2)},
    ], summary.classes);
    section("classes", "Totals by class",
      make("svg", {viewBox, role: "img",
        "aria-label": "Messages by total, those to be under the threshold above the line, those to be over it below"},
        ...parts),
      make("p", {class: "key"}, make("span", {class: "k-under"}, "to be under (upwards)"),
        make("span", {class: "k-over"}, "to be over (downwards)"),
        make("span", {class: "k-mark"}, "threshold"),
        "shares of each, by their square roots"),
      classes.node);
  }

  // Filters of a table of rules: by text, kind and what test says.
  function ruleTools(rules, shown, toggles) {
    const text = make("input", {type: "search", id: "rule-filter", autocomplete: "off"});
    const kinds = [...new Set(rules.map((rule) => rule.kind))].sort();
    const kind = make("select", {id: "rule-kind"}, make("option", {value: ""}, "all"),
      ...kinds.map((each) => make("option", {value: each}, each)));
    const count = make("span", {role: "status", class: "note", id: "rule-count"});
    const boxes = toggles.map(([title, test]) => {
      const box = make("input", {type: "checkbox"});
      return {box, test, node: make("label", {}, box, title)};
    });
    function apply() {
      const wanted = text.value.toLowerCase();
      const found = shown.choose((rule) =>
        (wanted === "" || rule.name.toLowerCase().includes(wanted)) &&
        (kind.value === "" || rule.kind === kind.value) &&
        boxes.every(({box, test}) => !box.checked || test(rule)));
      count.textContent = whole(found) + " of " + whole(rules.length) + " rules";
    }
    for (const each of [text, kind, ...boxes.map(({box}) => box)]) {
      each.addEventListener("input", apply);
    }
    apply();
    return make("div", {class: "tools"}, make("label", {}, "Name", text),
      make("label", {}, "Kind", kind), ...boxes.map(({node}) => node), count);
  }

  function showReport() {
    const rules = data.rules;
    const active = rules.filter((rule) => rule.active);
    const never = active.filter((rule) => rule.toBeOver + rule.toBeUnder === 0);
    section("summary", "Summary", tiles([
      ["False positives", whole(data.falsePositives),
        share(data.falsePositives, data.toBeUnder) + " of " + whole(data.toBeUnder)],
      ["Missed", whole(data.misses), share(data.misses, data.toBeOver) + " of " + whole(data.toBeOver)],
      ["Threshold", String(data.threshold)],
      ["Rules", whole(active.length), whole(never.length) + " never hit"],
    ]), data.toBeOver === 0
      ? make("p", {class: "bad"}, "No class is one whose messages are to be over; name them with --over.")
      : null);
    curveSection([data]);
    histogramSection(data);
    const shown = table("Rules", [
      {title: "Rule", value: (row) => row.name, class: "name", node: nameCell},
      {title: "Score", value: (row) => row.score, number: true},
      {title: "Hits over", value: (row) => row.toBeOver, number: true, text: (row) => whole(row.toBeOver)},
      {title: "Hits under", value: (row) => row.toBeUnder, number: true, text: (row) => whole(row.toBeUnder)},
      {title: "Precision", value: (row) => row.precision, number: true,
        text: (row) => row.toBeOver + row.toBeUnder === 0 ? "–" : (100 * row.precision).toFixed(1) + " %"},
      {title: "Decided", value: (row) => row.decided, number: true, text: (row) => whole(row.decided)},
      {title: "Tries", value: (row) => row.tries, number: true, text: (row) => whole(row.tries)},
      {title: "Bytes", value: (row) => row.bytes, number: true, text: (row) => whole(row.bytes)},
      {title: "Given up", value: (row) => row.limited, number: true, text: (row) => whole(row.limited)},
      {title: "Sampled ms", value: (row) => row.nanoseconds, number: true,
        text: (row) => (row.nanoseconds / 1e6).toFixed(2)},
    ], rules, {column: 2, isRising: false});
    section("rules", "Rules", ruleTools(rules, shown, [
      ["hit something", (rule) => rule.toBeOver + rule.toBeUnder > 0],
      ["hit wrongly", (rule) => (rule.score > 0 && rule.toBeUnder > 0) || (rule.score < 0 && rule.toBeOver > 0)],
    ]), shown.node);
    section("overlaps", "Rules that hit the same messages", table("Of the rules that hit most", [
      {title: "Rule", value: (row) => row.one, class: "name"},
      {title: "Rule", value: (row) => row.two, class: "name"},
      {title: "Both", value: (row) => row.both, number: true, text: (row) => whole(row.both)},
      {title: "Of either", value: (row) => row.jaccard, number: true,
        text: (row) => (100 * row.jaccard).toFixed(1) + " %"},
    ], data.overlaps, {column: 3, isRising: false}).node);
    section("nearest", "Messages nearest to the threshold", table("Nearest first", [
      {title: "Distance", value: (row) => Math.abs(row.total - data.threshold), number: true,
        text: (row) => Math.abs(row.total - data.threshold).toFixed(3)},
      {title: "Total", value: (row) => row.total, number: true, text: (row) => score(row.total)},
      {title: "Verdict", value: (row) => row.right ? "right" : "wrong",
        node: (row) => [make("span", {class: row.right ? "good" : "bad"}, row.right ? "right" : "wrong")]},
      {title: "Class", value: (row) => row.class},
      {title: "Message", value: messageName, class: "name"},
    ], data.nearest).node);
    section("never", "Rules that never hit",
      make("p", {}, whole(never.length) + " of " + whole(active.length) + " active rules"),
      make("details", {}, make("summary", {}, "Their names"),
        make("ul", {class: "names"}, ...never.map((rule) => make("li", {}, rule.name)))));
  }

  function pair(values) {
    return values[0] === values[1] ? whole(values[1]) : whole(values[0]) + " → " + whole(values[1]);
  }

  function showDiff() {
    section("summary", "Summary", tiles([
      ["New false positives", whole(data.newFalsePositives), whole(data.mendedFalsePositives) + " mended",
        data.newFalsePositives > 0 ? "bad" : "good"],
      ["Newly missed", whole(data.newMisses), whole(data.mendedMisses) + " mended",
        data.newMisses > 0 ? "bad" : "good"],
      ["False positives", pair([data.before.falsePositives, data.after.falsePositives]),
        "of " + whole(data.after.toBeUnder)],
      ["Missed", pair([data.before.misses, data.after.misses]), "of " + whole(data.after.toBeOver)],
    ]), data.differing.length > 0
      ? make("p", {class: "note"}, "The runs differ in: " +
        data.differing.map((name) => name === "generation" ? "rule set" : name).join(", "))
      : null);
    curveSection([data.before, data.after]);
    section("verdicts", "Messages whose verdict changed", table("With the rules that did it", [
      {title: "Class", value: (row) => row.class},
      {title: "Message", value: messageName, class: "name"},
      {title: "Before", value: (row) => row.before, number: true, text: (row) => score(row.before)},
      {title: "After", value: (row) => row.after, number: true, text: (row) => score(row.after)},
      {title: "Verdict", value: (row) => row.right ? "right" : "wrong",
        node: (row) => [make("span", {class: row.right ? "good" : "bad"},
          (row.over ? "over" : "under") + ", " + (row.right ? "right" : "wrong"))]},
      {title: "Rules", value: (row) => row.rules.length, class: "name",
        node: (row) => row.rules.map((rule) => make("div", {},
          rule.name + ": " + score(rule.before) + " → " + score(rule.after)))},
    ], data.verdicts).node);
    const shown = table("New, gone, with another score, or with other hits", [
      {title: "Rule", value: (row) => row.name, class: "name", node: nameCell},
      {title: "Score before", value: (row) => row.scoreBefore ?? -Infinity, number: true,
        text: (row) => score(row.scoreBefore)},
      {title: "Score after", value: (row) => row.scoreAfter ?? -Infinity, number: true,
        text: (row) => score(row.scoreAfter)},
      {title: "Hits over", value: (row) => row.toBeOver[1] - row.toBeOver[0], number: true,
        text: (row) => pair(row.toBeOver)},
      {title: "Hits under", value: (row) => row.toBeUnder[1] - row.toBeUnder[0], number: true,
        text: (row) => pair(row.toBeUnder)},
    ], data.rules);
    section("rules", "Rules that changed", ruleTools(data.rules, shown, [
      ["new", (rule) => rule.scoreBefore === null],
      ["gone", (rule) => rule.scoreAfter === null],
    ]), shown.node);
  }

  const settings = isDiff ? data.settings : [data.settings];
  document.getElementById("title").textContent = settings.map((each) => each.result).join(" → ");
  document.title = settings.map((each) => each.result).join(" → ") + " – Corvane corpus";
  document.getElementById("about").textContent = settings.map((each) =>
    "engine " + each.engine + ", rules " + each.generation + ", threshold " + each.threshold)
    .filter((text, each, all) => all.indexOf(text) === each).join(" → ");
  if (isDiff) {
    showDiff();
  } else {
    showReport();
  }
})();
