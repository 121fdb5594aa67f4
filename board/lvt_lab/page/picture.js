'use strict';

// The picture: drawn where the layout says, once, and painted as a view of the lab is.

// ---- the picture -----------------------------------------------------------------------------------

const drawn = {nodes: new Map(), cables: new Map(), badges: []};

function drawAll() {
  const picture = $('picture');
  const focused = document.activeElement && document.activeElement.dataset ? document.activeElement.dataset.key : null;
  picture.replaceChildren();
  drawn.nodes.clear();
  drawn.cables.clear();
  drawn.badges = [];
  for (const node of live.nodes)
    drawNode(picture, node, layout.nodes[node.name]);
  for (const cable of live.cables)
    drawCable(picture, cable, layout.cables[cable.name]);
  // Arcs and words may stand out.
  const box = picture.getBBox();
  const margin = 26;
  layout.box = {x: box.x - margin, y: box.y - margin, width: box.width + 2 * margin, height: box.height + 2 * margin};
  picture.setAttribute('viewBox', Object.values(layout.box).join(' '));
  putClass(picture, live.cables.length > 16 ? 'dense' : '');
  fit();
  if (focused)
    picture.querySelector(`[data-key="${CSS.escape(focused)}"]`)?.focus();
}

function fit() {
  if (!layout || !layout.box)
    return;
  const room = $('paper').getBoundingClientRect();
  const scale = Math.max(0.45, Math.min(1.6, room.width / layout.box.width, room.height / layout.box.height));
  $('picture').setAttribute('width', Math.floor(layout.box.width * scale));
  $('picture').setAttribute('height', Math.floor(layout.box.height * scale));
}

/** What was pointed at last. */
let hinted = null;

/** What can be chosen by mouse and keyboard alike. */
function makeButton(group, key, act) {
  group.setAttribute('tabindex', '0');
  group.setAttribute('role', 'button');
  group.dataset.key = key;
  group.addEventListener('click', act);
  group.addEventListener('keydown', event => {
    if (event.key === 'Enter' || event.key === ' ') {
      event.preventDefault();
      act();
    }
  });
  for (const kind of ['pointerenter', 'focus'])
    group.addEventListener(kind, () => {
      hinted = group;
      put($('hint'), group.getAttribute('aria-label'));
    });
}

function drawNode(picture, node, place) {
  const {x, y, width, height} = place;
  const box = grow => ({x: x - width / 2 - grow, y: y - height / 2 - grow, width: width + 2 * grow,
    height: height + 2 * grow, rx: 9 + grow});
  const name = shape('text', {x, y: y + 5}, node.name);
  const note = shape('text', {class: 'note', x, y: y + 16});
  const group = shape('g', {}, shape('rect', {class: 'ring', ...box(4)}), shape('rect', box(0)), name, note);
  makeButton(group, `node ${node.name}`, () => select(node.name));
  picture.append(group);
  drawn.nodes.set(node.name, {group, name, note, y});
}

function drawCable(picture, cable, path) {
  const wire = shape('path', {class: 'wire', d: path});
  const hit = shape('path', {class: 'hit', d: path});
  const flows = ['flow', 'flow back'].map(words => shape('path', {class: words, d: path}));
  const group = shape('g', {class: 'cable'}, wire, ...flows, hit);
  makeButton(group, `cable ${cable.name}`, () => turn(cable.name));
  picture.append(group);
  const length = wire.getTotalLength();
  const at = distance => wire.getPointAtLength(distance);
  const middle = at(length / 2);
  const remark = shape('text', {class: 'remark', x: middle.x, y: middle.y + 4});
  const [first, last] = [at(0), at(length)];
  const flat = Math.abs(first.y - last.y) < 30;
  const rate = flat ? shape('text', {class: 'rate flat', x: middle.x, y: middle.y - 9})
    : shape('text', {class: 'rate', x: middle.x + 9, y: middle.y + 4});
  // The two ends of a cable that is pulled out hang apart.
  const plugs = [0.3, 0.7].map(share => {
    const point = at(length * share);
    return shape('circle', {class: 'plug', cx: point.x, cy: point.y, r: 5});
  });
  const ends = cable.ends.map((end, i) => isHost(live, end.node) ? null : drawEnd(end, i, at, length));
  group.append(...plugs, ...ends.filter(end => end).map(end => end.group), remark, rate);
  drawn.cables.set(cable.name, {group, wire, length, flows, remark, rate, ends});
}

function drawEnd(end, i, at, length) {
  const place = distance => at(i === 0 ? distance : length - distance);
  const [from, to] = [place(0), place(Math.min(30, length))];
  const turned = Math.atan2(to.y - from.y, to.x - from.x);
  // How far the badge reaches along the cable.
  const reach = Math.min(15 / Math.abs(Math.cos(turned)), 9 / Math.abs(Math.sin(turned)));
  let distance = Math.min(reach + 6, length / 3);
  const isTaken = point => drawn.badges.some(
    other => Math.abs(other.x - point.x) < 32 && Math.abs(other.y - point.y) < 20);
  while (isTaken(place(distance)) && distance + reach < length / 2)
    distance += 6;
  const {x, y} = place(distance);
  drawn.badges.push({x, y});
  const text = shape('text', {class: 'badge', x, y: y + 4});
  const group = shape('g', {}, shape('rect', {x: x - 15, y: y - 9, width: 30, height: 18, rx: 6}), text);
  // Bars across the cable, as of a gate: two shut it, one lets nothing through but learns.
  const across = {x: -Math.sin(turned) * 11, y: Math.cos(turned) * 11};
  [5, 12].forEach((more, number) => {
    const bar = place(Math.min(distance + reach + more, length));
    group.append(shape('path', {
      class: number === 0 ? 'bar first' : 'bar',
      d: `M${bar.x - across.x},${bar.y - across.y}L${bar.x + across.x},${bar.y + across.y}`,
    }));
  });
  // Words stand outside of where the cable leads to.
  const far = place(length);
  const loops = Math.abs(far.x - from.x) < 5 && Math.abs(turned) < 1;
  const flat = loops || Math.abs(far.y - y) < 30;
  const right = far.x >= x;
  const words = shape('text', {
    class: 'words',
    x: flat ? x : x + (right ? 20 : -20),
    y: loops && i === 1 ? y + 22 : flat ? y - 14 : y + 4,
    'text-anchor': flat ? 'middle' : right ? 'start' : 'end',
  });
  group.append(words);
  return {group, text, words};
}

function paint(view) {
  for (const node of view.nodes) {
    const {group, name, note, y} = drawn.nodes.get(node.name);
    const words = nodeNote(node);
    put(note, words);
    name.setAttribute('y', words ? y : y + 5);
    const host = node.kind === 'host';
    const lack = !node.power ? ' dark' : !node.daemon && !host ? ' mute' : '';
    putClass(group, `node${host ? ' host' : ''}${node.is_root ? ' root' : ''}${lack}` +
      (node.name === selected ? ' selected' : ''));
    describe(group, `${host ? 'Host' : 'Switch'} ${node.name}${words ? ', ' + words : ''}`);
  }
  for (const cable of view.cables) {
    const its = drawn.cables.get(cable.name);
    const state = cableState(view, cable);
    putClass(its.group, `cable ${state}${its.group.classList.contains('busy') ? ' busy' : ''}`);
    const dashes = state === 'pulled' ? `${its.length * 0.3} ${its.length * 0.4}` : '';
    if (its.wire.style.strokeDasharray !== dashes)
      its.wire.style.strokeDasharray = dashes;
    const bad = cable.ends.some(end => end.quality);
    put(its.remark, state === 'pulled' ? 'pulled out' : bad ? 'degraded' : '');
    describe(its.group, `${cableWords(view, cable)}. ${cable.plugged ? 'Pull it out' : 'Plug it in'}`);
    cable.ends.forEach((end, i) => {
      const flows = moment === null && state !== 'pulled' ? rates.get(end.name + cable.name) || 0 : 0;
      its.flows[i].classList.toggle('on', flows > 0);
      if (!its.ends[i])
        return;
      putClass(its.ends[i].group, `end ${endState(view, end)}`);
      put(its.ends[i].text, `${end.port} ${end.link && LETTERS[end.role] || '·'}`);
      const shuts = ['carries', 'cut'].includes(state) && ['discarding', 'learning'].includes(end.state);
      put(its.ends[i].words, shuts ? VERBS[end.state] : '');
    });
    const rate = Math.max(...cable.ends.map(end => rates.get(end.name + cable.name) || 0));
    const flows = moment === null && state !== 'pulled' && rate > 0;
    put(its.rate, flows ? `${rate < 10 ? rate.toFixed(1) : Math.round(rate)}/s` : '');
  }
}

/** Frames a second, over a second or so. */
function measure(view) {
  const frames = new Map();
  for (const cable of view.cables)
    for (const end of cable.ends)
      frames.set(end.name + cable.name, end.frames - end.bpdus);
  if (!sample || view.ms - sample.ms > 5000)
    sample = {ms: view.ms, frames};
  const passed = (view.ms - sample.ms) / 1000;
  if (passed < 0.8)
    return;
  rates = new Map([...frames].map(([key, count]) => [key, (count - sample.frames.get(key)) / passed]));
  sample = {ms: view.ms, frames};
}
