// Draws the plots of a capture's page from the numbers in it. All text of the page is there already.
'use strict';
const orvoPage = (function () {
  const report = JSON.parse(document.getElementById('report').textContent);
  const colors = ['#0072b2', '#d55e00', '#009e73', '#cc79a7'];
  const channels = [0, 1, 2, 3].filter(c => report.tags[c] > 0);
  const plots = window.orvoPlots = {};

  // Three digits and a unit: "1.25 MHz".
  function withUnit(value, units) {
    let unit = 0;
    let size = Math.abs(value);
    while (size >= 999.5 && unit + 1 < units.length) { size /= 1000; ++unit; }
    const digits = size === 0 || size >= 99.95 ? 0 : size >= 9.995 ? 1 : 2;
    return (value < 0 ? '-' : '') + size.toFixed(digits) + ' ' + units[unit];
  }
  const rateText = hz => withUnit(hz, ['Hz', 'kHz', 'MHz', 'GHz']);
  const timeText = ps => withUnit(ps, ['ps', 'ns', 'us', 'ms', 's']);
  const channelNames = channels.map(c => 'channel ' + c);

  function style(name) { return getComputedStyle(document.documentElement).getPropertyValue(name).trim(); }

  // The values under the pointer, as text: nothing here can become markup.
  function showValues(id, title) {
    return (event, x, points) => {
      const parts = points.filter(p => p.yval !== null && !Number.isNaN(p.yval))
          .map(p => p.name + ': ' + title.y(p.yval));
      document.getElementById(id + '-values').textContent = title.x(x) + (parts.length ? ' — ' : '') + parts.join(', ');
    };
  }

  function draw(id, rows, labels, lineColors, title, options) {
    const place = document.getElementById(id);
    if (rows.length === 0) {
      place.textContent = 'none';
      place.classList.add('none');
      return;
    }
    const graph = new Dygraph(place, rows, Object.assign({
      labels: labels, colors: lineColors, legend: 'never', animatedZooms: false, stepPlot: true, strokeWidth: 1.5,
      gridLineColor: style('--line'), axisLineColor: style('--faint'), highlightCircleSize: 3,
      axisLabelWidth: 70, highlightCallback: showValues(id, title),
      unhighlightCallback: () => { document.getElementById(id + '-values').textContent = ''; }
    }, options));
    plots[id] = graph;
    const controls = document.getElementById(id + '-controls');
    if (labels.length > 2) {
      labels.slice(1).forEach((label, i) => {
        const box = document.createElement('input');
        box.type = 'checkbox';
        box.checked = true;
        box.addEventListener('change', () => graph.setVisibility(i, box.checked));
        const swatch = document.createElement('span');
        swatch.className = 'swatch';
        swatch.style.background = lineColors[i];
        const holder = document.createElement('label');
        holder.append(box, swatch, label);
        controls.append(holder);
      });
    }
    const reset = document.createElement('button');
    reset.type = 'button';
    reset.textContent = 'show all';
    reset.addEventListener('click', () => graph.resetZoom());
    controls.append(reset);
  }

  function drawRates() {
    const slice = report.rates.slice_s;
    const length = channels.length === 0 ? 0 : report.rates.counts[channels[0]].length;
    const rows = [];
    for (let i = 0; i < length; ++i) {
      rows.push([i * slice + report.rates.start_s, ...channels.map(c => report.rates.counts[c][i] / slice)]);
    }
    if (length > 0) rows.push([length * slice + report.rates.start_s, ...rows[length - 1].slice(1)]);
    const time = s => s === 0 ? '0 s' : timeText(s * 1e12);
    draw('rates', rows, ['time', ...channelNames], channels.map(c => colors[c]), {x: time, y: rateText}, {
      includeZero: true,
      axes: {x: {axisLabelFormatter: time}, y: {axisLabelFormatter: rateText}}
    });
  }

  // Decades, named with units, as many as have room.
  function decades(low, high, pixels) {
    const every = Math.max(1, Math.ceil((high - low) / Math.max(1, Math.floor(pixels / 75))));
    const ticks = [];
    for (let v = Math.ceil(low); v <= high; v += every) ticks.push({v: v, label: timeText(Math.pow(10, v))});
    return ticks;
  }

  function drawIntervals() {
    const lows = report.intervals.bin_low_ps;
    const used = lows.map((low, i) => channels.some(c => report.intervals.counts[c][i] > 0));
    const first = used.indexOf(true);
    const last = used.lastIndexOf(true);
    const rows = [];
    for (let i = first; first >= 0 && i <= last + 1; ++i) {
      const counts = channels.map(c => i <= last ? report.intervals.counts[c][i] || null : null);
      rows.push([i / 8, ...counts]);
    }
    const bin = x => {
      const i = Math.round(x * 8);
      return timeText(Math.pow(10, i / 8)) + ' to ' + timeText(Math.pow(10, (i + 1) / 8));
    };
    // A single count, which a pause is, stands clear of the axis.
    const most = Math.max(1, ...channels.map(c => Math.max(...report.intervals.counts[c])));
    draw('intervals', rows, ['time', ...channelNames], channels.map(c => colors[c]),
         {x: bin, y: v => String(v)}, {
           logscale: true, valueRange: [0.6, 2 * most],
           drawPoints: true, pointSize: 2,
           axes: {x: {ticker: decades, axisLabelFormatter: v => timeText(Math.pow(10, v))}}
         });
  }

  function drawLosses() {
    const slice = report.losses.slice_bytes;
    const rows = report.losses.lost_bytes.map((lost, i) => [i * slice, lost]);
    if (rows.length > 0) rows.push([report.losses.payload_bytes, rows[rows.length - 1][1]]);
    const bytes = b => withUnit(b, ['B', 'kB', 'MB', 'GB', 'TB']);
    const any = report.losses.lost_bytes.some(lost => lost > 0);
    draw('losses', any ? rows : [], ['position', 'lost'], [style('--broken')], {x: bytes, y: bytes}, {
      includeZero: true, fillGraph: true,
      axes: {x: {axisLabelFormatter: bytes}, y: {axisLabelFormatter: bytes}}
    });
  }

  drawRates();
  drawIntervals();
  drawLosses();

  window.matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => {
    for (const id of Object.keys(plots)) {
      plots[id].updateOptions({gridLineColor: style('--line'), axisLineColor: style('--faint')});
    }
  });
  return {report, plots, colors, style, timeText, draw};
})();
