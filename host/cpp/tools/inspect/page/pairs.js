// Draws the histograms of the pairs of channels.
(function () {
  const {report, style, colors, timeText, draw} = orvoPage;

  // Delays on an axis: as many digits as tell its ticks apart.
  function axisDelay(ps, granularity, option, graph) {
    const [low, high] = graph.xAxisRange();
    const most = Math.max(Math.abs(low), Math.abs(high));
    const units = [[1, 'ps'], [1e3, 'ns'], [1e6, 'us'], [1e9, 'ms'], [1e12, 's']];
    const [size, name] = units.filter(unit => unit[0] <= most).pop() || units[0];
    const digits = Math.ceil(Math.log10(size / ((high - low) / 10)));
    const text = (ps / size).toFixed(Math.min(Math.max(digits, 0), 12));
    return (Number(text) === 0 ? '0' : text) + ' ' + name;
  }
  const countText = n => n < 1e5 ? String(Number(n.toPrecision(4))) : n.toPrecision(3).replace('e+', 'e');

  // Each point is the middle of a step: what the pointer is on is what is told.
  function centredSteps(e) {
    const context = e.drawingContext;
    context.setLineDash(e.dygraph.getOption('strokePattern', e.setName) || []);
    const points = e.points.filter(point => !Number.isNaN(point.canvasy));
    context.beginPath();
    points.forEach((point, i) => {
      const left = i > 0 ? (points[i - 1].canvasx + point.canvasx) / 2 : point.canvasx;
      const right = i + 1 < points.length ? (points[i + 1].canvasx + point.canvasx) / 2 : point.canvasx;
      context.lineTo(left, point.canvasy);
      context.lineTo(right, point.canvasy);
    });
    context.stroke();
    context.setLineDash([]);
  }

  // Under the counts: the peak's region, the teeth of a comb, the bar at half maximum.
  function marks(pair) {
    const middle = pair.expected[pair.expected.length >> 1];
    return (context, area, graph) => {
      const x = ps => graph.toDomXCoord(ps);
      context.save();
      context.beginPath();
      context.rect(area.x, area.y, area.w, area.h);
      context.clip();
      context.fillStyle = context.strokeStyle = style('--peak');
      if (pair.peak) {
        context.globalAlpha = 0.12;
        context.fillRect(x(pair.peak.from_ps), area.y, x(pair.peak.to_ps) - x(pair.peak.from_ps), area.h);
      }
      if (pair.comb) {
        const period = pair.comb.period_ps;
        context.strokeStyle = style('--comb');
        context.globalAlpha = 0.4;
        for (let n = Math.ceil((-pair.range_ps - pair.comb.tooth_ps) / period);
             pair.comb.tooth_ps + n * period <= pair.range_ps; ++n) {
          line(context, x(pair.comb.tooth_ps + n * period), area.y, x(pair.comb.tooth_ps + n * period), area.y + area.h);
        }
      }
      if (pair.half) {
        context.globalAlpha = 1;
        context.lineWidth = 3;
        context.strokeStyle = style('--ink');
        const y = graph.toDomYCoord(pair.half.level * middle);
        const [from, to] = [x(pair.half.from_ps), x(pair.half.to_ps)];
        line(context, from, y, to, y);
        line(context, from, y - 6, from, y + 6);
        line(context, to, y - 6, to, y + 6);
      }
      context.restore();
    };
  }
  function line(context, fromX, fromY, toX, toY) {
    context.beginPath();
    context.moveTo(fromX, fromY);
    context.lineTo(toX, toY);
    context.stroke();
  }

  function drawHistogram(pair) {
    const half = (pair.counts.length - 1) / 2;
    const rows = pair.counts.map((count, i) => {
      const expected = pair.expected[i];
      return [(i - half) * pair.bin_ps, count, pair.level * expected, expected];
    });
    const delay = ps => (ps + pair.offset_ps) + ' ps';
    draw(pair.id + '-histogram', rows, ['delay', 'pairs', 'background', 'by chance'],
         [colors[0], colors[1], colors[2]], {x: delay, y: countText}, {
           includeZero: true, stepPlot: false, plotter: centredSteps, underlayCallback: marks(pair), strokeWidth: 1,
           series: {
             'background': {strokePattern: [8, 4], strokeWidth: 2}, 'by chance': {strokePattern: [2, 3], strokeWidth: 2}
           },
           axes: {x: {axisLabelFormatter: axisDelay, pixelsPerLabel: 60}, y: {axisLabelFormatter: countText}}
         });
  }

  function drawOverview(pair) {
    const all = pair.overview;
    const rows = all.sigmas.map((sigmas, i) => [all.first_ps + (i + 0.5) * all.group_ps, sigmas]);
    const group = ps => timeText(ps - all.group_ps / 2) + ' to ' + timeText(ps + all.group_ps / 2);
    const sigmaText = n => n.toPrecision(3) + ' sigmas';
    draw(pair.id + '-overview', rows, ['delay', 'clearest'], [colors[0]], {x: group, y: sigmaText}, {
      valueRange: [0, 1.1 * Math.max(all.threshold, ...all.sigmas)],
      stepPlot: false, plotter: centredSteps, strokeWidth: 1,
      axes: {x: {axisLabelFormatter: axisDelay, pixelsPerLabel: 60}},
      underlayCallback: (context, area, graph) => {
        const y = graph.toDomYCoord(all.threshold);
        const x = all.delay_ps === undefined ? NaN : graph.toDomXCoord(all.delay_ps);
        context.save();
        context.strokeStyle = style('--faint');
        context.setLineDash([6, 4]);
        if (y >= area.y && y <= area.y + area.h) line(context, area.x, y, area.x + area.w, y);
        if (x >= area.x && x <= area.x + area.w) {
          context.globalAlpha = 0.25;
          context.fillStyle = style('--peak');
          context.fillRect(x - 4, area.y, 8, area.h);
        }
        context.restore();
      }
    });
  }

  for (const pair of report.pairs) {
    drawHistogram(pair);
    drawOverview(pair);
  }
})();
