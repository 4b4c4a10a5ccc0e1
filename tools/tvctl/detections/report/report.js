"use strict";

// Everything in `data` was named by somebody else. It becomes text of elements that are made here, never markup.
(function () {
  const data = JSON.parse(document.getElementById("data").textContent);
  const byId = (id) => document.getElementById(id);

  const pageSize = 50;
  const printedRows = 1000;

  // In the order of the values of a bar, from the bottom up.
  const series = [
    { key: "cleaned", label: "Cleaned" },
    { key: "reported", label: "Reported only" },
    { key: "allowed", label: "Allowed by the user" },
    { key: "failed", label: "Could not be cleaned" },
    { key: "hash", label: "On a hash list" },
  ];
  // What became of a file: the words of a row.
  const results = {
    cleaned: { label: "Cleaned", tone: "cleaned" },
    reported: { label: "Reported", tone: "reported" },
    allowed: { label: "Allowed", tone: "allowed" },
    failed: { label: "Failed", tone: "failed" },
    deleted: { label: "Deleted", tone: "hash" },
    renamed: { label: "Renamed", tone: "hash" },
  };
  const icons = {
    all: "M8 1.5 14 4v4c0 3.5-2.5 5.5-6 6.5C4.5 13.5 2 11.5 2 8V4z",
    cleaned: "m3 8.5 3.5 3.5L13 4.5",
    reported: "M8 2v7M8 13v.1",
    allowed: "M3 8h10",
    failed: "m4 4 8 8M12 4l-8 8",
    hash: "M3 6h10M3 10h10M6.5 2.5 5 13.5M11 2.5 9.5 13.5",
  };
  const months = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"];

  const counts = data.counts;
  const detections = counts.cleaned + counts.reported + counts.allowed + counts.failed;
  const total = detections + counts.hash;

  function element(name, className, text) {
    const made = document.createElement(name);
    if (className) {
      made.className = className;
    }
    if (text !== undefined) {
      made.textContent = text;
    }
    return made;
  }

  function drawing(name, attributes, parent) {
    const made = document.createElementNS("http://www.w3.org/2000/svg", name);
    for (const key of Object.keys(attributes)) {
      made.setAttribute(key, attributes[key]);
    }
    if (parent) {
      parent.appendChild(made);
    }
    return made;
  }

  function icon(kind) {
    const svg = drawing("svg", { class: "icon", viewBox: "0 0 16 16", "aria-hidden": "true" });
    drawing("path", { d: icons[kind] }, svg);
    return svg;
  }

  function formatted(number) {
    return number.toLocaleString("en-US");
  }

  function files(number) {
    return formatted(number) + (number === 1 ? " file" : " files");
  }

  // ------------------------------------------------------------------------------------------------ the summary

  function showHead() {
    const where = data.host ? data.host + " \u00b7 " : "";
    const period = data.since ? "since " + data.since : "all records";
    byId("period").textContent = where + period + " \u00b7 as of " + data.generated + " (" + data.zone + ")";
  }

  function showVerdict() {
    const verdict = byId("verdict");
    let tone = "good";
    let kind = "cleaned";
    let text = "Every detected file was dealt with.";
    if (counts.failed > 0) {
      tone = "bad";
      kind = "failed";
      text = files(counts.failed) + " could not be cleaned. Look at " +
        (counts.failed === 1 ? "it" : "them") + " below, under the result \u201cFailed\u201d.";
    } else if (counts.reported > 0) {
      tone = "warn";
      kind = "reported";
      text = files(counts.reported) + " reported and left in place, as configured.";
    }
    verdict.classList.add(tone);
    verdict.append(icon(kind), element("span", "", text));
  }

  function showCards() {
    const share = (count) => {
      const percent = detections === 0 ? 0 : (count * 100) / detections;
      return percent > 0 && percent < 1 ? "under 1 % of detections" : Math.round(percent) + " % of detections";
    };
    const cards = [
      ["all", "Detections", detections, "by signature"],
      ["cleaned", "Cleaned", counts.cleaned, share(counts.cleaned)],
      ["reported", "Left in place", counts.reported + counts.allowed,
        formatted(counts.reported) + " reported, " + formatted(counts.allowed) + " allowed"],
      ["failed", "Not cleaned", counts.failed, counts.failed > 0 ? "need attention" : "nothing to do"],
      ["hash", "On a hash list", counts.hash, "known-bad files"],
    ];
    for (const [kind, label, count, hint] of cards) {
      const card = element("li");
      const head = element("div", "label");
      const mark = icon(kind);
      mark.classList.add("tone-" + kind);
      head.append(mark, element("span", "", label));
      card.append(head, element("div", "value", formatted(count)), element("div", "hint", hint));
      card.dataset.card = kind;
      card.classList.toggle("alert", kind === "failed" && count > 0);
      byId("cards").append(card);
    }
  }

  // -------------------------------------------------------------------------------------------------- the chart

  // The series differ in texture as well, for eyes and printers that do not tell the colours apart.
  const textures = {
    cleaned: "",
    reported: "M-1 7 7-1M3 11 11 3M-5 3 3-5",
    allowed: "M0 4h8",
    failed: "M0 0 8 8M8 0 0 8",
    hash: "M4 0v8",
  };

  function addTextures(svg, prefix) {
    const definitions = drawing("defs", {}, svg);
    for (const { key } of series) {
      const pattern = drawing("pattern",
        { id: prefix + key, width: 8, height: 8, patternUnits: "userSpaceOnUse" }, definitions);
      drawing("rect", { width: 8, height: 8, class: "fill-" + key }, pattern);
      drawing("path", { d: textures[key], class: "texture" }, pattern);
    }
  }

  function nameOfBar(start) {
    const [date, time] = start.split("T");
    const [year, month, day] = date.split("-").map(Number);
    const dayText = day + " " + months[month - 1] + " " + year;
    switch (data.timeline.unit) {
      case "hour":
        return dayText + ", " + time;
      case "day":
        return dayText;
      case "week":
        return "Week of " + dayText;
      case "month":
        return months[month - 1] + " " + year;
      default:
        return String(year);
    }
  }

  function labelOfBar(start) {
    const [date, time] = start.split("T");
    const [year, month, day] = date.split("-").map(Number);
    switch (data.timeline.unit) {
      case "hour":
        return time === "00:00" ? day + " " + months[month - 1] : time;
      case "day":
      case "week":
        return day + " " + months[month - 1];
      case "month":
        return months[month - 1] + " " + year;
      default:
        return String(year);
    }
  }

  function sumOfBar(bar) {
    return bar.slice(1).reduce((sum, value) => sum + value, 0);
  }

  function textOfBar(bar) {
    const lines = series.map(({ label }, index) => [label, bar[index + 1]]).filter(([, value]) => value > 0)
      .map(([label, value]) => label + ": " + formatted(value));
    return [nameOfBar(bar[0])].concat(lines.length > 0 ? lines : ["Nothing"]).join("\n");
  }

  // A scale of whole numbers that ends just above `highest`.
  function stepFor(highest, steps) {
    const least = Math.max(1, highest / steps);
    const power = Math.pow(10, Math.floor(Math.log10(least)));
    return [1, 2, 5, 10].map((factor) => factor * power).find((step) => step >= least && Number.isInteger(step));
  }

  function drawScale(svg, box, highest, step) {
    for (let value = 0; value <= highest; value += step) {
      const y = box.bottom - (value / highest) * (box.bottom - box.top);
      drawing("line", { x1: box.left, x2: box.right, y1: y, y2: y, class: value === 0 ? "base" : "grid" }, svg);
      drawing("text", { x: box.left - 8, y: y + 4, "text-anchor": "end" }, svg).textContent = formatted(value);
    }
  }

  function drawBar(svg, bar, x, width, box, highest) {
    const group = drawing("g", { class: "bar" }, svg);
    drawing("title", {}, group).textContent = textOfBar(bar);
    drawing("rect", { class: "hit", x, width, y: box.top, height: box.bottom - box.top }, group);
    const thickness = Math.max(1, Math.min(width * 0.72, 44));
    let y = box.bottom;
    series.forEach(({ key }, index) => {
      const height = (bar[index + 1] / highest) * (box.bottom - box.top);
      if (height > 0) {
        y -= height;
        drawing("rect", { x: x + (width - thickness) / 2, width: thickness, y, height: Math.max(height, 1),
          fill: "url(#texture-" + key + ")", "data-series": key }, group);
      }
    });
    group.addEventListener("mouseenter", () => showTip(bar, x + width / 2, y));
    group.addEventListener("mouseleave", hideTip);
  }

  const tip = element("div", "tip");
  tip.hidden = true;
  tip.setAttribute("aria-hidden", "true");

  function showTip(bar, x, y) {
    tip.textContent = textOfBar(bar);
    tip.hidden = false;
    const space = byId("chart").clientWidth - tip.offsetWidth;
    tip.style.left = Math.max(0, Math.min(x - tip.offsetWidth / 2, space)) + "px";
    tip.style.top = Math.max(0, y - tip.offsetHeight - 8) + "px";
  }

  function hideTip() {
    tip.hidden = true;
  }

  function drawChart() {
    const bars = data.timeline.bars;
    const place = byId("chart");
    const width = Math.max(place.clientWidth, 280);
    const height = 240;
    const svg = drawing("svg", { viewBox: "0 0 " + width + " " + height, role: "img",
      "aria-labelledby": "chart-name chart-text" });
    drawing("title", { id: "chart-name" }, svg).textContent = "Detections by " + data.timeline.unit;
    drawing("desc", { id: "chart-text" }, svg).textContent = describeChart(bars);
    addTextures(svg, "texture-");

    const most = Math.max(1, ...bars.map(sumOfBar));
    const step = stepFor(most, 4);
    const highest = Math.ceil(most / step) * step;
    const box = { left: 16 + 8 * formatted(highest).length, right: width, top: 10, bottom: height - 26 };
    drawScale(svg, box, highest, step);
    const each = (box.right - box.left) / bars.length;
    const every = Math.ceil(bars.length / Math.max(1, Math.floor((box.right - box.left) / 76)));
    bars.forEach((bar, index) => {
      const x = box.left + index * each;
      drawBar(svg, bar, x, each, box, highest);
      if (index % every === 0) {
        drawing("text", { x: x + each / 2, y: height - 6, "text-anchor": "middle" }, svg).textContent =
          labelOfBar(bar[0]);
      }
    });
    place.replaceChildren(svg, tip);
    hideTip();
  }

  function describeChart(bars) {
    const busiest = bars.reduce((best, bar) => (sumOfBar(bar) > sumOfBar(best) ? bar : best));
    return bars.length + " bars, one for each " + data.timeline.unit + ", from " + nameOfBar(bars[0][0]) + " to " +
      nameOfBar(bars[bars.length - 1][0]) + ". The highest is " + nameOfBar(busiest[0]) + " with " +
      formatted(sumOfBar(busiest)) + ". The same numbers are in the table below.";
  }

  function showLegend() {
    byId("chart-title").append(" ", element("span", "muted", "by " + data.timeline.unit));
    for (const { key, label } of series) {
      if (counts[key] > 0) {
        const item = element("li");
        const svg = drawing("svg", { viewBox: "0 0 14 14", "aria-hidden": "true" });
        addTextures(svg, "legend-");
        drawing("rect", { width: 14, height: 14, fill: "url(#legend-" + key + ")" }, svg);
        item.append(svg, element("span", "", label));
        byId("legend").append(item);
      }
    }
  }

  function showChartTable() {
    const head = element("tr");
    for (const text of ["From"].concat(series.map(({ label }) => label))) {
      const cell = element("th", "", text);
      cell.scope = "col";
      head.append(cell);
    }
    const body = element("tbody");
    for (const bar of data.timeline.bars.filter((each) => sumOfBar(each) > 0)) {
      const row = element("tr");
      const first = element("th", "", nameOfBar(bar[0]));
      first.scope = "row";
      row.append(first, ...bar.slice(1).map((value) => element("td", "", formatted(value))));
      body.append(row);
    }
    const top = element("thead");
    top.append(head);
    byId("chart-table").append(top, body);
  }

  // -------------------------------------------------------------------------------------------------- the lists

  function showBars(list, entries) {
    const most = Math.max(1, ...entries.map(([, count]) => count));
    for (const [text, count] of entries) {
      const item = element("li");
      const row = element("div", "row");
      const what = element("bdi", "what", text);
      row.append(what, element("span", "amount", formatted(count)));
      const track = element("div", "track");
      const meter = element("span", "meter");
      meter.style.width = (count * 100) / most + "%";
      track.append(meter);
      item.append(row, track);
      list.append(item);
    }
    if (entries.length === 0) {
      list.append(element("li", "muted", "None"));
    }
  }

  // -------------------------------------------------------------------------------------------------- the table

  const view = { rows: data.rows, page: 0, column: 0, isAscending: false };

  function resultCell(row) {
    const { label, tone } = results[row[1]];
    const cell = element("td");
    const badge = element("span", "badge tone-" + tone);
    badge.append(icon(tone), element("span", "", label));
    cell.append(badge);
    return cell;
  }

  function fileCell(path) {
    const cell = element("td", "file");
    const slash = path.lastIndexOf("/") + 1;
    const whole = element("bdi");
    whole.append(element("span", "folder", path.slice(0, slash)), element("span", "", path.slice(slash)));
    cell.append(whole);
    return cell;
  }

  function tableRow(row) {
    const made = element("tr");
    const name = element("td", "name");
    name.append(element("bdi", "", row[2]));
    made.append(element("td", "time", row[0]), resultCell(row), name, fileCell(row[3]),
      element("td", "source", row[4]));
    return made;
  }

  function showRows(first, count) {
    byId("rows").replaceChildren(...view.rows.slice(first, first + count).map(tableRow));
  }

  function showPage() {
    const pages = Math.max(1, Math.ceil(view.rows.length / pageSize));
    view.page = Math.min(view.page, pages - 1);
    showRows(view.page * pageSize, pageSize);
    byId("none").hidden = view.rows.length > 0;
    byId("pager").hidden = pages === 1;
    byId("previous").disabled = view.page === 0;
    byId("next").disabled = view.page === pages - 1;
    byId("page").textContent = "Page " + formatted(view.page + 1) + " of " + formatted(pages);
    byId("count").textContent = view.rows.length === data.rows.length
      ? formatted(data.rows.length) + (data.cut ? " newest of " + formatted(total) : " in all")
      : formatted(view.rows.length) + " of " + formatted(data.rows.length);
    const isByTime = view.column === 0;
    byId("previous").textContent = isByTime ? (view.isAscending ? "Older" : "Newer") : "Previous";
    byId("next").textContent = isByTime ? (view.isAscending ? "Newer" : "Older") : "Next";
  }

  function select() {
    const words = byId("search").value.toLowerCase().split(/\s+/).filter((word) => word !== "");
    const result = byId("result").value;
    view.rows = data.rows.filter((row) => {
      const text = row.join("\n").toLowerCase();
      return (result === "" || row[1] === result) && words.every((word) => text.includes(word));
    });
    const order = view.isAscending ? 1 : -1;
    const { column } = view;
    if (!(column === 0 && !view.isAscending)) {
      view.rows.sort((left, right) => (left[column] < right[column] ? -order : left[column] > right[column] ? order : 0));
    }
    view.page = 0;
    showPage();
  }

  function sortBy(column) {
    view.isAscending = view.column === column ? !view.isAscending : column !== 0;
    view.column = column;
    showOrder();
    select();
  }

  function showOrder() {
    document.querySelectorAll("#table th").forEach((head, index) => {
      if (index === view.column) {
        head.setAttribute("aria-sort", view.isAscending ? "ascending" : "descending");
      } else {
        head.removeAttribute("aria-sort");
      }
    });
  }

  function prepareTable() {
    const present = new Set(data.rows.map((row) => row[1]));
    for (const key of Object.keys(results).filter((each) => present.has(each))) {
      const option = element("option", "", results[key].label);
      option.value = key;
      byId("result").append(option);
    }
    byId("search").addEventListener("input", select);
    byId("result").addEventListener("change", select);
    for (const button of document.querySelectorAll("#table th button")) {
      button.addEventListener("click", () => sortBy(Number(button.dataset.column)));
    }
    byId("previous").addEventListener("click", () => { view.page -= 1; showPage(); });
    byId("next").addEventListener("click", () => { view.page += 1; showPage(); });
    window.addEventListener("beforeprint", () => showRows(0, printedRows));
    window.addEventListener("afterprint", showPage);
    showOrder();
    showPage();
  }

  function showNotes() {
    const notes = [];
    if (data.cut) {
      notes.push("The table holds the newest " + formatted(data.rows.length) + " of " + formatted(total) +
        " records; the numbers above count all of them.");
    }
    if (data.undated > 0) {
      notes.push(formatted(data.undated) + " without a usable time: counted, but not in the chart.");
    }
    if (data.unreadable > 0) {
      notes.push(formatted(data.unreadable) + " entries of the hash list reports could not be read.");
    }
    if (!data.exact) {
      notes.push("There are so many different names or folders that their numbers may be a little low.");
    }
    byId("notes").append(...notes.map((text) => element("p", "", text)));
  }

  showHead();
  if (total === 0) {
    byId("empty-text").textContent = data.since
      ? "No file was detected since " + data.since + "." : "No file has been detected on this machine so far.";
    byId("empty").hidden = false;
  } else {
    byId("content").hidden = false;
    showVerdict();
    showCards();
    showLegend();
    drawChart();
    showChartTable();
    showBars(byId("names"), data.names);
    showBars(byId("folders"), data.folders);
    prepareTable();
    window.addEventListener("resize", drawChart);
  }
  showNotes();
})();
