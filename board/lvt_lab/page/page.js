'use strict';

// The address that the program prints ends in the token, which is in no request but those for the lab.
const token = location.hash.slice(1);
const $ = id => document.getElementById(id);

/** The latest view of the lab, as `lvt_lab show -j` tells it. */
let live = null;
/** All that has happened, as `lvt_lab monitor -j` tells it. */
const events = [];
/** Where nodes and cables are drawn. */
let layout = null;
/** How many events the moment that is shown comes after; nothing: it is now. */
let moment = null;
/** The node whose tables are shown. */
let selected = null;
/** What flows over each end of each cable, in frames a second, BPDUs apart. */
let rates = new Map();
let sample = null;
let ended = false;

// ---- making elements -------------------------------------------------------------------------------

function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes))
    made.setAttribute(key, value);
  made.append(...children);
  return made;
}

function shape(name, attributes = {}, ...children) {
  const made = document.createElementNS('http://www.w3.org/2000/svg', name);
  for (const [key, value] of Object.entries(attributes))
    made.setAttribute(key, value);
  made.append(...children);
  return made;
}

/** Sets what has changed only, so that nothing is drawn anew in vain. */
function put(target, text) {
  if (target.textContent !== text)
    target.textContent = text;
}

function putClass(target, words) {
  if (target.getAttribute('class') !== words)
    target.setAttribute('class', words);
}

function describe(target, words) {
  if (target.getAttribute('aria-label') !== words)
    target.setAttribute('aria-label', words);
}

function seconds(ms) {
  return (ms / 1000).toFixed(3);
}

let noticeTimer = 0;
function notify(words) {
  $('notice').textContent = words;
  $('notice').hidden = false;
  clearTimeout(noticeTimer);
  noticeTimer = setTimeout(() => { $('notice').hidden = true; }, 6000);
}

// ---- what it was like -----------------------------------------------------------------------------

const verbOf = event => event.what === 'command' ? event.value.split(' ')[0] : '';
const turnsCable = event => ['pull', 'plug', 'flap'].includes(verbOf(event));

/** The view after the first `count` events. */
function viewAfter(count) {
  // Events that are too old are not kept: what they told is not known then.
  const unknown = events[0].number > 1;
  const nodes = new Map();
  const cables = new Map();
  const ends = new Map();
  for (const node of live.nodes)
    nodes.set(node.name, {...node, power: true, daemon: true, root: '', root_port: 0, is_root: false});
  for (const cable of live.cables) {
    const first = events.find(event => event.cable === cable.name && turnsCable(event));
    const past = {
      name: cable.name,
      plugged: first ? verbOf(first) !== 'plug' : cable.plugged,
      ends: cable.ends.map(({name, node, port}) =>
        ({name, node, port, link: false, role: '', state: unknown ? '' : 'down', unknown})),
    };
    cables.set(cable.name, past);
    for (const end of past.ends)
      ends.set(`${end.node}:${end.port}`, end);
  }
  const lose = (node, all) => {
    node.root = '';
    for (const end of ends.values())
      if (end.node === node.name)
        Object.assign(end, {role: ''}, all ? {link: false, state: '', unknown: false} : {});
  };
  const boots = new Set();
  for (const event of events)
    if (verbOf(event) === 'power' && !boots.has(event.node)) {
      boots.add(event.node);
      nodes.get(event.node).power = event.value.endsWith(' off');
      nodes.get(event.node).daemon = nodes.get(event.node).power;
    }

  const view = {...live, nodes: [...nodes.values()], cables: [...cables.values()], at_rest: false};
  for (const event of events.slice(0, count)) {
    const node = nodes.get(event.node);
    const end = ends.get(`${event.node}:${event.port}`);
    view.ms = event.ms;
    view.at_rest = event.what === 'calm' || (view.at_rest && ['ping', 'daemon'].includes(event.what));
    if (event.what === 'link' && end)
      Object.assign(end, {link: event.value === 'up', unknown: false}, event.value === 'up' ? {} : {state: 'down'});
    else if (event.what === 'state' && end)
      Object.assign(end, {link: true, state: event.value, unknown: false});
    else if (event.what === 'role' && end)
      end.role = event.value;
    else if (event.what === 'root' && node)
      node.root = event.value;
    else if (event.what === 'daemon' && event.value === 'dead' && node)
      node.daemon = false;
    else if (turnsCable(event) && cables.has(event.cable))
      cables.get(event.cable).plugged = !cables.get(event.cable).plugged;
    else if (verbOf(event) === 'kill') {
      node.daemon = false;
      lose(node, false);
    } else if (verbOf(event) === 'restart')
      node.daemon = true;
    else if (verbOf(event) === 'power') {
      node.power = node.daemon = event.value.endsWith(' on');
      if (!node.power)
        lose(node, true);
    }
  }
  for (const node of view.nodes)
    node.is_root = node.daemon && node.root !== '' && node.root.endsWith('/' + node.mac);
  for (const cable of view.cables) {
    cable.ends.forEach((end, i) => {
      if (nodes.get(end.node).kind === 'host')
        Object.assign(end, {link: cable.plugged && nodes.get(cable.ends[1 - i].node).power, state: '', unknown: false});
    });
    cable.carries = cable.plugged && cable.ends.every(end =>
      end.link && (nodes.get(end.node).kind === 'host' || ['forwarding', 'off'].includes(end.state)));
  }
  return view;
}

// ---- words ---------------------------------------------------------------------------------------

const LETTERS = {root: 'R', designated: 'D', alternate: 'A', backup: 'B', disabled: '·', off: '○'};
const VERBS = {discarding: 'discards', learning: 'learns', forwarding: 'forwards'};

const isHost = (view, name) => view.nodes.find(node => node.name === name).kind === 'host';

const isUsual = end => end.link && end.state === 'forwarding' && !['alternate', 'backup'].includes(end.role);

/** "root", "alternate, discards": the state is told where it is not the usual one. */
function endWords(view, end) {
  const node = view.nodes.find(known => known.name === end.node);
  if (node.kind === 'host' || !node.power)
    return '';
  if (end.unknown)
    return 'not known';
  if (!end.link)
    return 'no link';
  // States are told at once, roles once a second: of a link that has just come the role is not known yet.
  if (!end.role || end.role === 'disabled')
    return VERBS[end.state] || end.state;
  if (end.role === 'off')
    return 'off';
  return isUsual(end) ? end.role : `${end.role}, ${VERBS[end.state] || end.state}`;
}

function endState(view, end) {
  return end.unknown || !end.link ? 'none' : end.state || 'forwarding';
}

function cableState(view, cable) {
  if (!cable.plugged)
    return 'pulled';
  if (cable.ends.some(end => end.unknown))
    return 'unknown';
  if (cable.carries)
    return 'carries';
  return cable.ends.every(end => end.link) ? 'cut' : 'dead';
}

function cableWords(view, cable) {
  const state = {
    pulled: 'pulled out', unknown: 'not known', carries: 'carries data', cut: 'carries no data', dead: 'has no link',
  }[cableState(view, cable)];
  const ends = cable.ends.map(end => {
    const words = cable.plugged ? endWords(view, end) : '';
    return words ? `${end.name} ${words}` : end.name;
  });
  const quality = cable.ends.filter(end => end.quality).map(end => `, from ${end.name} ${end.quality}`).join('');
  return `Cable ${ends.join(' to ')}: ${state}${quality}`;
}

function nodeNote(node) {
  if (!node.power)
    return 'no power';
  if (node.kind === 'host')
    return node.bridge;
  if (!node.daemon)
    return 'no daemon';
  return node.is_root ? 'root' : node.kind === 'switch' ? '' : node.kind;
}

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
  const scale = Math.max(0.5, Math.min(1.6, room.width / layout.box.width, room.height / layout.box.height));
  $('picture').setAttribute('width', Math.floor(layout.box.width * scale));
  $('picture').setAttribute('height', Math.floor(layout.box.height * scale));
}

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
    group.addEventListener(kind, () => put($('hint'), group.getAttribute('aria-label')));
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
  const rate = shape('text', {class: flat ? 'rate flat' : 'rate', x: middle.x + (flat ? 0 : 9), y: middle.y + (flat ? -9 : 4)});
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
  const isTaken = point => drawn.badges.some(other => Math.abs(other.x - point.x) < 32 && Math.abs(other.y - point.y) < 20);
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
  const flat = Math.abs(far.y - y) < 30;
  const right = far.x >= x;
  const words = shape('text', {
    class: 'words',
    x: flat ? x : x + (right ? 20 : -20),
    y: flat ? y - 14 : y + 4,
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
    putClass(group, ['node', node.kind === 'host' ? 'host' : '', node.is_root ? 'root' : '',
      !node.power ? 'dark' : !node.daemon && node.kind !== 'host' ? 'mute' : '', node.name === selected ? 'selected' : ''].join(' '));
    describe(group, `${node.kind === 'host' ? 'Host' : 'Switch'} ${node.name}${words ? ', ' + words : ''}`);
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
      put(its.ends[i].words, !['pulled', 'unknown', 'dead'].includes(state) && ['discarding', 'learning'].includes(end.state)
        ? VERBS[end.state] : '');
    });
    const flowing = moment === null ? Math.max(...cable.ends.map(end => rates.get(end.name + cable.name) || 0)) : 0;
    put(its.rate, flowing > 0 && state !== 'pulled' ? `${flowing < 10 ? flowing.toFixed(1) : Math.round(flowing)}/s` : '');
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

// ---- beside the picture ---------------------------------------------------------------------------

function rootOf(view) {
  const counts = new Map();
  for (const node of view.nodes)
    if (node.root)
      counts.set(node.root, (counts.get(node.root) || 0) + 1);
  const roots = view.nodes.filter(node => node.is_root && node.power);
  roots.sort((one, other) => (counts.get(other.root) || 0) - (counts.get(one.root) || 0));
  return roots.length ? roots[0] : null;
}

function eventLine(event, index) {
  const line = element('li', {class: event.what}, element('time', {}, seconds(event.ms)),
    element('span', {}, event.text));
  line.addEventListener('click', () => goTo(index + 1));
  return line;
}

/** The latest events up to the moment, the latest one first. */
function listEvents(list, count, max, wanted) {
  const key = `${count} ${max} ${events.length && events[0].number} ${selected}`;
  if (list.dataset.told === key)
    return;
  list.dataset.told = key;
  const lines = [];
  for (let i = count - 1; i >= 0 && lines.length < max; i--)
    if (wanted(events[i]))
      lines.push(eventLine(events[i], i));
  list.replaceChildren(...lines);
}

function rootName(view, root) {
  const found = view.nodes.find(node => root && root.endsWith('/' + node.mac));
  return found ? found.name : root;
}

function showDetails(view) {
  const node = view.nodes.find(known => known.name === selected);
  $('details').hidden = !node;
  if (!node)
    return;
  const host = node.kind === 'host';
  put($('details-title'), node.name);
  const facts = [['Kind', node.kind + (node.rapid ? ', rapid' : '')]];
  if (host)
    facts.push(['Address', node.bridge]);
  else
    facts.push(['Bridge', node.bridge],
      ['Root', !node.power ? 'no power' : !node.daemon ? 'no daemon' : node.is_root ? 'itself' : rootName(view, node.root)]);
  if (node.root_port)
    facts.push(['Root port', String(node.root_port)]);
  facts.push(['MAC address', node.mac]);
  fill($('facts'), facts, ([name, value]) => [element('dt', {}, name), element('dd', {}, value)]);

  const rows = [];
  for (const cable of view.cables)
    cable.ends.forEach((end, i) => {
      if (end.node !== node.name)
        return;
      const other = cable.ends[1 - i];
      const pair = name => end[name] === undefined ? '' : `${end[name]} / ${other[name]}`;
      const heard = other.claim ? `${rootName(view, other.claim.root)}, cost ${other.claim.cost}` : '';
      const state = !cable.plugged ? 'pulled out' : end.unknown ? 'not known' : !end.link ? 'no link' : VERBS[end.state] || end.state;
      rows.push(host ? [other.name, pair('frames')]
        : [end.port, other.name, end.role, state, end.cost || '', pair('bpdus'), pair('frames'), heard]);
    });
  rows.sort((one, other) => one[0] - other[0]);
  const titles = host ? ['To', 'Frames out / in']
    : ['Port', 'To', 'Role', 'State', 'Cost', 'BPDUs out / in', 'Frames out / in', 'Hears of root'];
  fill($('ports').tHead, [titles], row => [element('tr', {}, ...row.map(text => element('th', {scope: 'col'}, text)))]);
  fill($('ports').tBodies[0], rows, row => [element('tr', {}, ...row.map(text => element('td', {}, String(text))))]);

  const deeds = host ? [] : [
    node.daemon ? ['Kill the daemon', `kill ${node.name}`] : ['Start the daemon', `restart ${node.name}`],
    node.power ? ['Take its power', `power ${node.name} off`] : ['Give it power', `power ${node.name} on`],
  ].filter(([, command]) => node.power || !command.startsWith('restart'));
  fill($('deeds'), deeds, ([words, command]) => {
    const button = element('button', {type: 'button'}, words);
    button.addEventListener('click', () => act(command));
    return [button];
  });
  for (const button of $('deeds').children)
    button.disabled = moment !== null || ended;
  listEvents($('its-events'), moment === null ? events.length : moment, 8, event => event.node === node.name);
}

/** Makes the children anew where what they tell has changed. */
function fill(target, rows, make) {
  const key = JSON.stringify(rows);
  if (target.dataset.told === key)
    return;
  target.dataset.told = key;
  target.replaceChildren(...rows.flatMap(make));
}

function select(name) {
  const before = selected;
  selected = name;
  render();
  if (name)
    $('details-title').focus({preventScroll: false});
  else if (before)
    drawn.nodes.get(before).group.focus();
}

function showLegend() {
  const sample = (state, text) => {
    const group = shape('g', {class: `end ${state}`}, shape('rect', {x: 1, y: 1, width: 30, height: 18, rx: 6}),
      shape('text', {class: 'badge', x: 16, y: 14}, text));
    for (const [i, x] of [[0, 38], [1, 45]])
      group.append(shape('path', {class: i ? 'bar' : 'bar first', d: `M${x},0V20`}));
    return shape('svg', {width: state === 'discarding' ? 48 : state === 'learning' ? 41 : 32, height: 20, 'aria-hidden': 'true'}, group);
  };
  const cable = state => shape('svg', {width: 40, height: 12, 'aria-hidden': 'true'}, shape('g', {class: `cable ${state}`},
    shape('path', {class: 'wire', d: state === 'pulled' ? 'M0,6H12M28,6H40' : 'M0,6H40'})));
  const items = [
    [sample('forwarding', '1 R'), 'forwards; R root port, D designated'],
    [sample('discarding', '2 A'), 'discards; A alternate, B backup'],
    [sample('learning', '3 D'), 'learns'],
    [cable('carries'), 'carries data'],
    [cable('cut'), 'cut by the end with the bars'],
    [cable('dead'), 'no link'],
    [cable('pulled'), 'pulled out'],
    [shape('svg', {width: 40, height: 12, 'aria-hidden': 'true'}, shape('g', {class: 'cable'},
      shape('path', {class: 'flow on', d: 'M3,6H40'}))), 'data flows, frames a second'],
  ];
  $('legend').replaceChildren(...items.map(([sign, words]) => element('div', {}, element('dt', {}, sign), element('dd', {}, words))));
}

// ---- the time line ----------------------------------------------------------------------------------

function goTo(count) {
  moment = count >= events.length ? null : Math.max(1, count);
  render();
}

/** The nearest command before or after the moment. */
function deedFrom(direction) {
  for (let i = (moment === null ? events.length : moment) - 1 + direction; i >= 0 && i < events.length; i += direction)
    if (events[i].what === 'command')
      return i + 1;
  return direction < 0 ? 1 : events.length;
}

function showTime(view) {
  const count = moment === null ? events.length : moment;
  const slider = $('time');
  slider.max = Math.max(1, events.length);
  slider.value = count;
  const event = events[count - 1];
  const words = moment === null ? 'now' : `${seconds(event.ms)} s: ${event.text}`;
  slider.setAttribute('aria-valuetext', words);
  put($('moment'), words);
  $('moment').title = words;
  for (const id of ['now', 'after', 'after-deed'])
    $(id).disabled = moment === null;
  for (const id of ['before', 'before-deed'])
    $(id).disabled = count <= 1;
  document.body.classList.toggle('past', moment !== null);

  const marks = [];
  events.forEach((known, i) => {
    if (known.what === 'command')
      marks.push([i, known.text]);
  });
  fill($('marks'), [[events.length], ...marks.slice(-80)], ([i, text]) => {
    if (text === undefined)
      return [];
    const mark = element('i', {title: text});
    mark.style.left = `${100 * i / Math.max(1, events.length - 1)}%`;
    mark.addEventListener('click', () => goTo(i + 1));
    return [mark];
  });
}

// ---- doing -----------------------------------------------------------------------------------------

async function act(command) {
  if (ended)
    return notify('The lab has ended.');
  if (moment !== null)
    return notify('This is what was. Go to now, and then change it.');
  try {
    const answer = await fetch('act', {method: 'POST', headers: {'X-Lab-Token': token}, body: command});
    if (!answer.ok)
      notify(await answer.text());
  } catch {
    notify('The page\'s program does not answer.');
  }
}

async function turn(name) {
  const cable = live.cables.find(known => known.name === name);
  const its = drawn.cables.get(name);
  its.group.classList.add('busy');
  await act(`${cable.plugged ? 'pull' : 'plug'} ${name}`);
  its.group.classList.remove('busy');
}

let asks = false;
async function arrange(top) {
  if (asks)
    return;
  asks = true;
  const settled = live.at_rest;
  try {
    const answer = await fetch(`layout?top=${encodeURIComponent(top)}`, {headers: {'X-Lab-Token': token}});
    if (answer.ok) {
      layout = await answer.json();
      layout.settled = settled;
      drawAll();
      render();
    } else
      notify(await answer.text());
  } catch {
    mood('no connection', 'lost');
  }
  asks = false;
}

// ---- all together -----------------------------------------------------------------------------------

function mood(words, kind) {
  put($('mood'), words);
  putClass($('mood'), `chip ${kind}`);
}

let connected = false;
function render() {
  if (!live || !events.length)
    return;
  const root = rootOf(live);
  // The root is drawn on top as soon as the lab knows its root; later only when asked for, so that nothing jumps.
  if (!layout || (!layout.settled && live.at_rest && root && layout.top !== root.name))
    return void arrange(root ? root.name : '');
  layout.settled = layout.settled || live.at_rest;
  const view = moment === null ? live : viewAfter(moment);
  const shownRoot = rootOf(view);
  document.title = `${live.lab}: ${shownRoot ? `root ${shownRoot.name}` : 'no root'}`;
  put($('lab'), live.lab);
  const hosts = live.nodes.filter(node => node.kind === 'host').length;
  put($('summary'), `${live.nodes.length - hosts} switches, ${live.cables.length} cables, ${hosts} hosts` +
    (shownRoot ? `; the root is ${shownRoot.name}` : '; no root'));
  if (ended)
    mood('the lab has ended', 'lost');
  else if (!connected)
    mood('no connection', 'lost');
  else if (moment !== null)
    mood(`as it was ${((live.ms - view.ms) / 1000).toFixed(1)} s ago`, 'past');
  else
    mood(live.at_rest ? 'at rest' : 'changes', live.at_rest ? 'rest' : '');
  $('arrange').hidden = !shownRoot || layout.top === shownRoot.name;
  paint(view);
  showTime(view);
  showDetails(view);
  listEvents($('events'), moment === null ? events.length : moment, 80, () => true);
}

let planned = false;
function plan() {
  if (planned)
    return;
  planned = true;
  requestAnimationFrame(() => {
    planned = false;
    render();
  });
}

/** The nearest thing in the picture in the direction of an arrow key. */
function moveFocus(key) {
  const from = document.activeElement;
  const [dx, dy] = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]}[key];
  const centre = group => {
    const box = (group.querySelector('.wire') || group).getBoundingClientRect();
    return {x: box.x + box.width / 2, y: box.y + box.height / 2};
  };
  const here = centre(from);
  let best = null;
  let least = Infinity;
  for (const group of $('picture').querySelectorAll('[data-key]')) {
    const there = centre(group);
    const along = (there.x - here.x) * dx + (there.y - here.y) * dy;
    const aside = Math.abs((there.x - here.x) * dy) + Math.abs((there.y - here.y) * dx);
    if (group !== from && along > 1 && along + 2 * aside < least) {
      least = along + 2 * aside;
      best = group;
    }
  }
  best?.focus();
}

function listen() {
  const source = new EventSource(`events?token=${encodeURIComponent(token)}`);
  source.addEventListener('open', () => {
    connected = true;
    plan();
  });
  source.addEventListener('happened', message => {
    const known = events.length ? events[events.length - 1].number : 0;
    events.push(...JSON.parse(message.data).filter(event => event.number > known));
    plan();
  });
  source.addEventListener('view', message => {
    live = JSON.parse(message.data);
    measure(live);
    plan();
  });
  source.addEventListener('ended', () => {
    ended = true;
    source.close();
    plan();
  });
  source.addEventListener('error', () => {
    connected = false;
    mood('no connection', 'lost');
    plan();
  });
}

function begin() {
  showLegend();
  if (!token) {
    mood('no token', 'lost');
    put($('hint'), 'Open the address that lvt_lab page prints, with all that follows the #.');
    return;
  }
  $('time').addEventListener('input', () => goTo(Number($('time').value)));
  $('before').addEventListener('click', () => goTo((moment === null ? events.length : moment) - 1));
  $('after').addEventListener('click', () => goTo(moment + 1));
  $('before-deed').addEventListener('click', () => goTo(deedFrom(-1)));
  $('after-deed').addEventListener('click', () => goTo(deedFrom(1)));
  $('now').addEventListener('click', () => goTo(events.length));
  $('close').addEventListener('click', () => select(null));
  $('arrange').addEventListener('click', () => arrange(rootOf(moment === null ? live : viewAfter(moment)).name));
  $('picture').addEventListener('keydown', event => {
    if (event.key.startsWith('Arrow')) {
      event.preventDefault();
      moveFocus(event.key);
    }
  });
  document.addEventListener('keydown', event => {
    if (event.key === 'Escape' && selected)
      select(null);
  });
  new ResizeObserver(fit).observe($('paper'));
  listen();
}

begin();
